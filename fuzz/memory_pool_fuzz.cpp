// memory_pool_fuzz.cpp: programs of allocations and frees, honest and hostile, against the model.
#include "input_chooser.h"
#include "models/memory_pool_model.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    InputChooser choose(input);
    MemoryPoolProgram program(choose);
    while (!input.empty())
        if (const char *wrong = program.step(choose))
            require(false, wrong);
    return 0;
}
