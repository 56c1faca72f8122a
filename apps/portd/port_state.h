// port_state.h: a port's state as the 32-bit data word of an event.
//
//   bit 0      the port exists
//   bit 1      its link is up
//   bit 2      it changed too often and is held down
//   bits 8-31  generation: which of the interfaces that had this system port, one after the other, is meant
//
// The generation is in the word so that a system port that was freed and taken again while its event was queued counts
// as changed data, and so that the receiver can tell whose state it got.
#pragma once

#include <cstdint>

inline constexpr uint32_t statePresent = 0x1;
inline constexpr uint32_t stateLinkUp = 0x2;
inline constexpr uint32_t stateHeldDown = 0x4;
inline constexpr uint32_t stateFlags = 0xFF;
inline constexpr uint32_t generationShift = 8;
inline constexpr uint32_t generationMask = 0xFFFFFF;

constexpr uint32_t stateWord(uint32_t generation, uint32_t flags)
{
    return (generation & generationMask) << generationShift | (flags & stateFlags);
}
constexpr uint32_t generationOf(uint32_t word)
{
    return word >> generationShift;
}
