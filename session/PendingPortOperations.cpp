// Placeholders of the port operations, which are still being built: each
// only marks its entry in the trace, so that the session links and
// dispatches. This file goes when they land.
#include "Kel/Trace.h"
#include "session/HarbecSmInternal.h"

namespace Harbec {

void HarbecSm::handleCounterUpdateRequest(const Kel::Ptr<const CounterUpdateRequest>&) { HARBEC_TRACE_ENTRY(); }
void HarbecSm::handleBlockPortRequest(const Kel::Ptr<const BlockPortRequest>&) { HARBEC_TRACE_ENTRY(); }
void HarbecSm::handleUpdateHostNwInfoRequest(const Kel::Ptr<const UpdateHostNwInfoRequest>&) {
  HARBEC_TRACE_ENTRY();
}
void HarbecSm::handleFetchDvPortRequest(const Kel::Ptr<const FetchDvPortRequest>&) { HARBEC_TRACE_ENTRY(); }
void HarbecSm::handleRefreshDvPortRequest(const Kel::Ptr<const RefreshDvPortRequest>&) { HARBEC_TRACE_ENTRY(); }
void HarbecSm::handleFetchDvPortRequestWithCallback(const Kel::Ptr<const FetchDvPortRequest>&) {
  HARBEC_TRACE_ENTRY();
}
void HarbecSm::handleRefreshDvPortRequestWithCallback(const Kel::Ptr<const RefreshDvPortRequest>&) {
  HARBEC_TRACE_ENTRY();
}

void fetchDvPorts(HarbecSm::Ptr) { HARBEC_TRACE_ENTRY(); }
void blockPort(HarbecSm::Ptr, Kel::String8, bool) { HARBEC_TRACE_ENTRY(); }

}  // namespace Harbec
