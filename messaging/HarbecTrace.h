// The library's developer traces: one handle, "Harbec", off until the host
// agent enables it (traceHandle().levelsUpTo(6)). Level 0 is for failures
// worth seeing always, 5 for function entry, 6 for state changes and
// values, 7 to 9 for detail.
#pragma once
#include "Kel/Trace.h"

namespace Harbec {
// Built on first use.
Kel::TraceHandle& traceHandle();
}  // namespace Harbec

#define HARBEC_TRACE(lvl, expr) KEL_TRACE_WITH(::Harbec::traceHandle(), lvl, expr)
// Function entry, with the full signature.
#define HARBEC_TRACE_ENTRY() HARBEC_TRACE(5, __PRETTY_FUNCTION__)
