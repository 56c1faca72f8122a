// assertion.h: every impossible state of this room, with the text that ends the process.
//
// The file and line numbers are fixed texts that field tools search for in core dumps; they name no line of today's
// sources. The C library prints the message and aborts.
#pragma once

// The C library's own failure call, which <assert.h> declares only without NDEBUG.
extern "C" [[noreturn]] void __assert_fail(const char *expression, const char *file, unsigned int line,
                                           const char *function) noexcept;

namespace vxw_shim
{
struct ImpossibleState {
    const char *expression;
    unsigned int line;
    const char *function;
};

inline constexpr ImpossibleState QueueEmptyOnRemove{"q->num_requests > 0", 257, "remove_queue_entry"};
inline constexpr ImpossibleState QueueFullOnAdd{"q->num_requests < q->max_size_queue", 303, "add_queue_entry"};
inline constexpr ImpossibleState UnknownKindGiven{"0", 1057, "semGive"};
inline constexpr ImpossibleState UnknownKindTaken{"0", 1088, "semTake"};
inline constexpr ImpossibleState UnknownKindDeleted{"0", 1118, "semDelete"};

[[noreturn]] inline void endProcess(const ImpossibleState &state)
{
    __assert_fail(state.expression, "src/vxw_shim.c", state.line, state.function);
}
} // namespace vxw_shim
