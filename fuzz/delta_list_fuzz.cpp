// delta_list_fuzz.cpp: programs of calls on a delta list, also from within aged(), against the model.
#include "input_chooser.h"
#include "models/delta_list_model.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    InputChooser choose(input);
    DeltaListProgram program(choose);
    while (!input.empty())
        if (const char *wrong = program.step())
            require(false, wrong);
    return 0;
}
