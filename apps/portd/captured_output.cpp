// captured_output.cpp: what the library's show functions print on standard output, as a text.
#include "captured_output.h"

#include <cstdio>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

namespace
{
std::string contentsOf(int file)
{
    std::string text;
    char bytes[4096];
    ssize_t count;
    lseek(file, 0, SEEK_SET);
    while ((count = read(file, bytes, sizeof bytes)) > 0)
        text.append(bytes, static_cast<size_t>(count));
    return text;
}
} // namespace

std::optional<std::string> capturedOutput(const std::function<void()> &print)
{
    const int file = memfd_create("kel-portd-show", MFD_CLOEXEC);
    const int saved = fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0);
    std::optional<std::string> text;
    if (file >= 0 && saved >= 0) {
        fflush(stdout);
        dup2(file, STDOUT_FILENO);
        print();
        fflush(stdout);
        dup2(saved, STDOUT_FILENO);
        text = contentsOf(file);
    }
    for (const int descriptor : {file, saved})
        if (descriptor >= 0)
            close(descriptor);
    return text;
}
