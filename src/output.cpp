// output.cpp: console print, early log and the memory forwarders.
//
// Locking:    none; the line buffer of dbgCliPrint belongs to one caller.
// Invariants: *cursor + *remaining == buf + bufSize, and the byte at the cursor is zero after every text that was kept.
// Cost:       one formatting a call, two when the buffer is sent; nothing allocates.
#include "vxw_shim.h"

#include <kel_platform.h>

#include <stdarg.h>
#include <stdio.h>
#include <string.h>

namespace
{
void sendText(int cli, const char *text)
{
    if (cli == 0)
        printf("%s", text);
    else
        cmNotifyCLI(cli, text);
}
} // namespace

int dbgCliPrint(char *buf, size_t bufSize, char **cursor, size_t *remaining, int cli, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    int length = vsnprintf(*cursor, *remaining, format, arguments);
    va_end(arguments);
    if (length < 0) {
        if (*remaining > 0)
            **cursor = '\0'; // cuts off what came before the error
        return length;
    }
    if (*remaining > static_cast<size_t>(length)) {
        *cursor += length;
        *remaining -= static_cast<size_t>(length);
        return length;
    }
    // Kept: a text that can never fit is dropped, yet its first bytes stay behind the cursor, where a caller's last
    // flush shows them (DbgCliPrint.ATextThatCanNeverFitIsDroppedAndItsStartStaysBehindTheCursor).
    if (static_cast<size_t>(length) >= bufSize)
        return length;

    // Cuts off the partial text. A caller without any room left has no byte at the cursor: its last one ends the text.
    *(*remaining > 0 ? *cursor : buf + bufSize - 1) = '\0';
    sendText(cli, buf);
    *cursor = buf;
    *remaining = bufSize;

    va_start(arguments, format);
    length = vsnprintf(buf, bufSize, format, arguments);
    va_end(arguments);
    if (length <= 0)
        return length;
    if (static_cast<size_t>(length) >= bufSize)
        return 0;
    *cursor += length;
    *remaining -= static_cast<size_t>(length);
    return length;
}

int logEarly(int module, int level, const char *format, ...)
{
    constexpr int lowestPrinted = 5;
    if (level > lowestPrinted)
        return 0;
    char text[1024] = "";
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    if (length < 0)
        text[0] = '\0';
    printf("%u|%u: %s\n", static_cast<unsigned>(module), static_cast<unsigned>(level), text);
    constexpr unsigned longest = sizeof text - 1;
    return static_cast<int>(static_cast<unsigned>(length) > longest ? longest : static_cast<unsigned>(length));
}

char *sysPhysMemTop()
{
    return reinterpret_cast<char *>(UINTPTR_MAX);
}

void *fast_memset(void *destination, int value, int count)
{
    return memset(destination, value, static_cast<size_t>(count));
}

void *fast_bzero(void *destination, int count)
{
    return memset(destination, 0, static_cast<size_t>(count));
}

void *fast_memcpy(void *destination, const void *source, int count)
{
    return memcpy(destination, source, static_cast<size_t>(count));
}

int fast_memcmp(const void *left, const void *right, int count)
{
    return memcmp(left, right, static_cast<size_t>(count));
}
