// The reset of the inventory before a new connect: machines, hosts and the
// ports asked for are dropped from their maps directly, without the
// cascades of a deletion, and the next update call asks for everything.
// Port groups, switches and the interface map stay.
#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "session/updates/HostIds.h"
#include "session/HarbecSmInternal.h"

namespace Harbec {

void cleanUp(Kel::Ptr<HarbecSm> sm) {
  HARBEC_TRACE_ENTRY();
  // Held to the end: no reader sees a half-empty inventory.
  Kel::ActivityLockAnchor anchor;
  sm->versionIs("");
  VI::Ptr vi = sm->vi();
  for (VI::VmIterator i = vi->vmIterator(); i; ++i) {
    HARBEC_TRACE(6, "Cleanup Vm " << i.value()->vmName());
    vi->vmDel(i.key());
  }
  for (VI::EsxHostIterator i = vi->esxHostIterator(); i; ++i) {
    HARBEC_TRACE(6, "Cleanup Host " << i.value()->hostName());
    vi->esxHostDel(i.key());
  }
  for (VI::NewPortIterator i = vi->newPortIterator(); i; ++i) {
    HARBEC_TRACE(6, "Cleanup Port" << i.key());
    vi->newPortDel(i.key());
  }
  freeAllHostIds();
  HARBEC_TRACE(5, "Done cleanup ");
}

}  // namespace Harbec
