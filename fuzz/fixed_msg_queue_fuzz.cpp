// fixed_msg_queue_fuzz.cpp: programs of sends and receives that never wait, against the model.
#include "input_chooser.h"
#include "models/fixed_msg_queue.h"

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    FuzzInput input(data, size);
    InputChooser choose(input);
    FixedMsgQueueProgram program(choose);
    while (!input.empty())
        require(program.step(choose).empty(), "queue and model agree");
    return 0;
}
