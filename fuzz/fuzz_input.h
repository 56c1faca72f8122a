// fuzz_input.h: takes values off the front of a fuzzer's input, and ends the process when something does not hold.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

// Called by libFuzzer and by run_corpus.cpp for each input; returns 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

inline void require(bool holds, const char *what)
{
    if (holds)
        return;
    fprintf(stderr, "does not hold: %s\n", what);
    abort();
}

// An input that is used up gives zeros, so every input is a whole one.
class FuzzInput
{
public:
    FuzzInput(const uint8_t *data, size_t size) : next(data), left(size) {}

    bool empty() const
    {
        return left == 0;
    }

    uint8_t byte()
    {
        if (left == 0)
            return 0;
        left--;
        return *next++;
    }

    uint32_t number()
    {
        uint32_t value = 0;
        for (int i = 0; i < 4; i++)
            value = value << 8 | byte();
        return value;
    }

    // At most `count` bytes, in an array of exactly that size, so that a byte read behind them is noticed.
    std::vector<unsigned char> bytes(size_t count)
    {
        count = std::min(count, left);
        const std::vector<unsigned char> taken(next, next + count);
        next += count;
        left -= count;
        return taken;
    }

    std::vector<unsigned char> rest()
    {
        return bytes(left);
    }

    // What is left, up to its first zero.
    std::string text()
    {
        const auto taken = rest();
        return {taken.begin(), std::find(taken.begin(), taken.end(), '\0')};
    }

private:
    const uint8_t *next;
    size_t left;
};
