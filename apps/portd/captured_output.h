// captured_output.h: what the library's show functions print on standard output, as a text.
//
// While `print` runs, descriptor 1 is a file in memory; the daemon's own lines go to a duplicate made before and are
// not caught. A line that the library prints on another thread in that moment is: it belongs to nobody else either. One
// capture at a time. Without descriptors or memory for it nothing is printed, and there is no text.
#pragma once

#include <functional>
#include <optional>
#include <string>

std::optional<std::string> capturedOutput(const std::function<void()> &print);
