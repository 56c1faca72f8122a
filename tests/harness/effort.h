// effort.h: how much work a long test does.
//
// Continuous integration proves that a promise holds; the full figure, which takes minutes, is asked for with
// KEL_FULL_EFFORT=1 in the environment.

#pragma once

#include <cstdlib>
#include <cstring>

inline bool fullEffort()
{
    const char *wanted = std::getenv("KEL_FULL_EFFORT");
    return wanted != nullptr && std::strcmp(wanted, "1") == 0;
}

// The number of rounds (or seconds, threads, ...) to use: `inCi` normally, `inFull` when the full figure is asked for.
template <typename Number>
Number effort(Number inCi, Number inFull)
{
    return fullEffort() ? inFull : inCi;
}
