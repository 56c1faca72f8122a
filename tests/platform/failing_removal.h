// failing_removal.h: the inventory's removal of a port, which fails on demand as it does without memory.
//
// Defines kelStandinRemovePort() for the program that includes it: in one source only.
#pragma once

#include <kel_standin.h>

#include <dlfcn.h>

#include <cerrno>

inline int removalsThatFail = 0;

extern "C" int kelStandinRemovePort(portInstance_t instance)
{
    if (removalsThatFail > 0) {
        --removalsThatFail;
        return ENOMEM;
    }
    static const auto real =
        reinterpret_cast<decltype(&kelStandinRemovePort)>(dlsym(RTLD_NEXT, "kelStandinRemovePort"));
    return real(instance);
}
