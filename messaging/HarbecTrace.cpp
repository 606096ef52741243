#include "messaging/HarbecTrace.h"

namespace Harbec {

Kel::TraceHandle& traceHandle() {
  static Kel::TraceHandle* handle = new Kel::TraceHandle("Harbec", false);
  return *handle;
}

}  // namespace Harbec
