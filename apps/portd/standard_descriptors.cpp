// standard_descriptors.cpp: descriptors 0 to 2 of a program that was started without them.
#include "standard_descriptors.h"

#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

bool openStandardDescriptors()
{
    // In rising order: the lowest free number is the next one that is missing.
    for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", O_RDWR) != descriptor)
            return false;
    return true;
}
