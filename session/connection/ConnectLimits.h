// What the vCenter session adds to the settings of its soap context when
// the host agent asks for it through ViConfig: a connect timeout, a bound
// on each reply's time and size, certificate checks. With none of them set
// the context keeps exactly its specified settings, but for one guard: a
// write to a closed connection fails instead of raising SIGPIPE.
#pragma once
#include "session/connection/VimBinding.h"
#include "standins/Status.h"

namespace Harbec {

// After the context's own settings, before the first call.
void applyLimits(VimBinding* vim, const ViConfig& config);

}  // namespace Harbec
