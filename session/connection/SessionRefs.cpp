// The process-wide references of the vCenter session.
#include "session/HarbecSmInternal.h"

namespace Harbec {

ns2__ServiceContent* serviceContent = nullptr;
ns2__ManagedObjectReference rootFolderRef;
ns2__ManagedObjectReference propertyCollectorRef;
ns2__ManagedObjectReference eventManagerRef;
ns2__ManagedObjectReference alarmManagerRef;
ns2__ManagedObjectReference dvsMor;
ns2__ManagedObjectReference spareRef;
ns2__ManagedObjectReference propFilterObjRef;
ns2__ManagedObjectReference eventPropFilterObjRef;
bool xsd_true = true;
bool xsd_false = false;

}  // namespace Harbec
