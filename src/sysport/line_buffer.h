// line_buffer.h: collects the dump's lines and sends them in pieces of up to 127 characters.
//
// A line of 128 characters or more never fits and is left out; what overflows is decided by dbgCliPrint().
#pragma once

#include "vxw_shim.h"

#include <kel_platform.h>

#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>

namespace sysport
{
class LineBuffer
{
public:
    explicit LineBuffer(uint32_t cli) : cli_(static_cast<int>(cli)) {}

    [[gnu::format(printf, 2, 3)]] void print(const char *format, ...)
    {
        char line[256]; // more than the longest line
        va_list arguments;
        va_start(arguments, format);
        vsnprintf(line, sizeof line, format, arguments);
        va_end(arguments);
        dbgCliPrint(text_, sizeof text_, &cursor_, &remaining_, cli_, "%s", line);
    }

    // Sends what is left. There is always something: the last line of a dump fits.
    void flush()
    {
        if (cli_ == 0)
            printf("%s", text_);
        else
            cmNotifyCLI(cli_, text_);
        cursor_ = text_;
        remaining_ = sizeof text_;
    }

private:
    char text_[128] = "";
    char *cursor_ = text_;
    size_t remaining_ = sizeof text_;
    int cli_;
};
} // namespace sysport
