// countdown.h: counts the calls of one kind that a thread makes, up to the one that is to fail.
//
// Asked in functions that a sanitizer may call itself before a thread is ready for its checks: plain and not checked.
#pragma once

#include "harness/instrumented.h"

enum class Failing { Once, FromThenOn };

struct Countdown {
    int left = 0;     // calls until the one that fails; 0 when nothing is counted
    int calls = 0;    // counted since start()
    int failures = 0; // made since start()
    Failing mode = Failing::Once;

    KEL_NOT_INSTRUMENTED void start(int nth, Failing howOften)
    {
        left = nth;
        calls = 0;
        failures = 0;
        mode = howOften;
    }

    // Returns the failures since start(). Nothing fails from here on.
    KEL_NOT_INSTRUMENTED int stop()
    {
        left = 0;
        return failures;
    }

    KEL_NOT_INSTRUMENTED bool isDue()
    {
        if (left == 0)
            return false;
        ++calls;
        if (left > 1) {
            --left;
            return false;
        }
        if (failures > 0 && mode == Failing::Once)
            return false;
        ++failures;
        return true;
    }
};
