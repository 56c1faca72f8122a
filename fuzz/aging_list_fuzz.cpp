// aging_list_fuzz.cpp: queues that start, stop and expire at any clock reading, against the model.
#include "input_chooser.h"
#include "models/aging_list_model.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    // Where the timer task sleeps; it is not started, so that each program is made of its own calls alone.
    SBaseQ::timerSig = SBaseQ::timerSig == nullptr ? semBCreate(SEM_Q_FIFO, SEM_EMPTY) : SBaseQ::timerSig;
    FuzzInput input(data, size);
    InputChooser choose(input);
    AgingListProgram program(choose);
    while (!input.empty())
        if (const char *wrong = program.step(choose))
            require(false, wrong);
    return 0;
}
