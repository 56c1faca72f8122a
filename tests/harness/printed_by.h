// printed_by.h: what a piece of code writes to standard output.
#pragma once

#include <gtest/gtest.h>

#include <cstdarg>
#include <cstdio>
#include <string>

template <class Code>
std::string printedBy(Code code)
{
    fflush(stdout);
    testing::internal::CaptureStdout();
    code();
    fflush(stdout);
    return testing::internal::GetCapturedStdout();
}

// printf into a string: for expected texts that hold pointers.
[[gnu::format(printf, 1, 2)]] inline std::string formatted(const char *format, ...)
{
    char text[4096];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}
