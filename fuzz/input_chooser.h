// input_chooser.h: a model's choices, taken from a fuzzer's input.
#pragma once

#include "fuzz_input.h"

class InputChooser
{
public:
    explicit InputChooser(FuzzInput &input) : input_(input) {}

    unsigned word()
    {
        return input_.number();
    }
    // Less than `limit`, which is above 0; most choices take one byte.
    unsigned below(unsigned limit)
    {
        return (limit <= 256 ? input_.byte() : input_.number()) % limit;
    }

private:
    FuzzInput &input_;
};
