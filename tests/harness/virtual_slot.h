// virtual_slot.h: where a virtual function stands in its class's table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

// The slot of a virtual member function, the first being 0, by the layout of a pointer to one: the offset into the
// table, plus 1 on x86-64; on Arm the mark is in the second word.
template <class Member>
size_t virtualSlotOf(Member member)
{
    struct {
        uintptr_t pointer;
        ptrdiff_t adjustment;
    } parts;
    static_assert(sizeof parts == sizeof member);
    memcpy(&parts, &member, sizeof parts);
    return parts.pointer / sizeof(void *);
}
