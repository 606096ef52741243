// Placeholders of the filters and the update loop, which are still being
// built: each only marks its entry in the trace, so that the session links
// and dispatches. This file goes when they land.
#include "Kel/Trace.h"
#include "session/HarbecSmInternal.h"

namespace Harbec {

void createPropFilter(Kel::Ptr<HarbecSm>) { HARBEC_TRACE_ENTRY(); }
void createEventFilter(Kel::Ptr<HarbecSm>) { HARBEC_TRACE_ENTRY(); }
void waitForUpdates(Kel::Ptr<HarbecSm>) { HARBEC_TRACE_ENTRY(); }
void checkForUpdates(Kel::Ptr<HarbecSm>) { HARBEC_TRACE_ENTRY(); }
void processUpdateSet(Kel::Ptr<HarbecSm>, ns2__UpdateSet*) { HARBEC_TRACE_ENTRY(); }
void applyConfig(Kel::Ptr<HarbecSm>) { HARBEC_TRACE_ENTRY(); }

}  // namespace Harbec
