// probe.h: static tracepoints (USDT) that a tracer can attach to in a running process; docs/tracing.md lists them.
//
// Cost:   one nop each. The arguments are computed always, so they are what is at hand anyway. Nothing is linked.
// Where:  in every build that finds systemtap's header, unless KEL_PROBES is off; elsewhere a probe is nothing.
#pragma once

#if defined(KEL_PROBES) && __has_include(<sys/sdt.h>)
#define SDT_USE_VARIADIC
#ifdef KEL_GATED_PROBES
#define _SDT_HAS_SEMAPHORES 1
#endif
#include <sys/sdt.h>
// The place `name` of the provider kel_utils, with one to six integers or pointers.
#define KEL_PROBE(name, ...) STAP_PROBEV(kel_utils, name, __VA_ARGS__)
// A source that defines KEL_GATED_PROBES has a gate for each of its probes: a count of the tracers attached to it.
#define KEL_PROBE_GATE(name)                                                                                           \
    extern "C" {                                                                                                       \
    [[gnu::section(".probes"), gnu::visibility("hidden")]] unsigned short kel_utils_##name##_semaphore;                \
    }
#define KEL_IS_TRACED(name) (__atomic_load_n(&kel_utils_##name##_semaphore, __ATOMIC_RELAXED) != 0)
#else
namespace vxw_shim
{
template <class... Argument>
void untraced(const Argument &...)
{
}
} // namespace vxw_shim
#define KEL_PROBE(name, ...) vxw_shim::untraced(__VA_ARGS__)
#define KEL_PROBE_GATE(name)
#define KEL_IS_TRACED(name) false
#endif
