// type_mark.h: which kind of queue a handle is.
//
// The mark is read as bytes, so that a handle of another kind, or of no queue at all, is only looked at and never used.
#pragma once

#include "queues.h"

#include <string.h>

namespace queues
{
inline constexpr uint32_t BaseMark = 0xFD0110DF;
inline constexpr uint32_t MultiEventMark = 0xFD0330DF;
inline constexpr uint32_t MsgQueueXMark = 0xFD0550DF;
inline constexpr uint32_t KindBits = 0x000EE000; // marks differ from BaseMark in these bits only

inline uint32_t markOf(const void *queue)
{
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Winvalid-offsetof"
    constexpr size_t markOffset = offsetof(SBaseQ, magic);
#pragma GCC diagnostic pop
    uint32_t mark;
    memcpy(&mark, static_cast<const unsigned char *>(queue) + markOffset, sizeof mark);
    return mark;
}

inline bool isMultiEventQ(const void *queue)
{
    return queue != nullptr && markOf(queue) == MultiEventMark;
}

inline bool isMsgQueueX(const void *queue)
{
    return queue != nullptr && markOf(queue) == MsgQueueXMark;
}

inline bool isAnyQueue(const void *queue)
{
    return queue != nullptr && (markOf(queue) & ~KindBits) == BaseMark;
}
} // namespace queues
