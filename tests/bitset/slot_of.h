// slot_of.h: where a virtual function stands in its class's table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// A pointer to a virtual function starts with its offset in the table (plus 1 on x86-64).
template <class Method>
size_t slotOf(Method method)
{
    uintptr_t offset;
    static_assert(sizeof method >= sizeof offset);
    memcpy(&offset, &method, sizeof offset);
    return offset / sizeof(void *);
}
