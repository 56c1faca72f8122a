// printed_text.h: what a piece of code prints on standard output, kept in memory.
//
// The C library's stdout is a variable; it points to the text only while the code runs, on this thread.
#pragma once

#include "fuzz_input.h"

template <class Code>
std::string printedText(Code code)
{
    char *text = nullptr;
    size_t size = 0;
    FILE *const saved = stdout;
    FILE *const memory = open_memstream(&text, &size);
    require(memory != nullptr, "there is memory for what is printed");
    stdout = memory;
    code();
    stdout = saved;
    fclose(memory);
    const std::string printed(text, size);
    free(text);
    return printed;
}

// What follows the header that the bit sets print.
inline std::string behindHeader(const std::string &printed)
{
    const std::string last = "bits ...\n";
    const size_t at = printed.find(last);
    require(at != std::string::npos, "the header is printed");
    return printed.substr(at + last.size());
}

inline std::string withoutBreaks(std::string text)
{
    std::erase_if(text, [](char c) { return c == ' ' || c == '\n'; });
    return text;
}
