// probe.h: static tracepoints (USDT) that a tracer can attach to in a running process; docs/tracing.md lists them.
//
// Cost:   one nop each. The arguments are computed always, so they are what is at hand anyway. Nothing is linked.
// Where:  in every build that finds systemtap's header, unless KEL_PROBES is off; elsewhere a probe is nothing.
#pragma once

#if defined(KEL_PROBES) && __has_include(<sys/sdt.h>)
#define SDT_USE_VARIADIC
#include <sys/sdt.h>
// The place `name` of the provider kel_utils, with one to six integers or pointers.
#define KEL_PROBE(name, ...) STAP_PROBEV(kel_utils, name, __VA_ARGS__)
#else
namespace vxw_shim
{
template <class... Argument>
void untraced(const Argument &...)
{
}
} // namespace vxw_shim
#define KEL_PROBE(name, ...) vxw_shim::untraced(__VA_ARGS__)
#endif
