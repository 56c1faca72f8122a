// seeded_chooser.h: the choices of a random program that can be run again.
#pragma once

#include <random>

// A chooser for the models' programs: the same seed chooses the same on every machine.
class SeededChooser
{
public:
    explicit SeededChooser(unsigned seed) : engine_(seed) {}
    unsigned word()
    {
        return static_cast<unsigned>(engine_());
    }
    unsigned below(unsigned limit) // limit > 0
    {
        return word() % limit;
    }

private:
    std::mt19937 engine_;
};
