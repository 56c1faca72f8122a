// time_of.h: how long a piece of code takes, on the monotonic clock.
//
// Early is a bug, late is the machine: tests bound waits tightly from below and only against hangs from above.
#pragma once

#include <chrono>

using std::chrono_literals::operator""ms;
using std::chrono_literals::operator""s;

template <class Code>
std::chrono::steady_clock::duration timeOf(Code code)
{
    const auto start = std::chrono::steady_clock::now();
    code();
    return std::chrono::steady_clock::now() - start;
}
