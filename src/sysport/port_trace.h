// port_trace.h: the port map's trace buffer.
#pragma once

namespace sysport
{
// From emsInitTraceBuffer(); null until the first table is made, which the platform takes for "no buffer". Written by
// the table's constructor while the platform's thread may be tracing: read and written with unlocked_access.h.
extern void *traceBuffer;

inline constexpr int TraceLevel = 0;
} // namespace sysport
