// Placeholders of the handlers and operations that are still being built:
// the filters, the update loop and the port operations. Each only marks its
// entry in the trace, so that the session links and dispatches; each moves
// into a file of its own as it lands, and this file then goes.
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

void createPropFilter(Kel::Ptr<HarbecSm>) { HARBEC_TRACE_ENTRY(); }
void createEventFilter(Kel::Ptr<HarbecSm>) { HARBEC_TRACE_ENTRY(); }
void waitForUpdates(Kel::Ptr<HarbecSm>) { HARBEC_TRACE_ENTRY(); }
void checkForUpdates(Kel::Ptr<HarbecSm>) { HARBEC_TRACE_ENTRY(); }
void processUpdateSet(Kel::Ptr<HarbecSm>, ns2__UpdateSet*) { HARBEC_TRACE_ENTRY(); }
void applyConfig(Kel::Ptr<HarbecSm>) { HARBEC_TRACE_ENTRY(); }
void fetchDvPorts(HarbecSm::Ptr) { HARBEC_TRACE_ENTRY(); }
void blockPort(HarbecSm::Ptr, Kel::String8, bool) { HARBEC_TRACE_ENTRY(); }

}  // namespace Harbec
