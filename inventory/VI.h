// The root of the inventory tree: everything known of the virtual
// infrastructure behind one vCenter. Attributes marked "outside" are part of
// the published model and written only by the host agent.
#pragma once
#include "inventory/EsxHost.h"
#include "inventory/Vm.h"
#include "messaging/WebServiceTypes.h"

namespace Harbec {

#define HARBEC_VI_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE)                          \
  SCALAR(connected, Connected, bool, false)                 /* outside */                    \
  SCALAR(switchId, SwitchId, Kel::String8, Kel::String8())  /* outside */                    \
  SCALAR(dvsName, DvsName, Kel::String8, Kel::String8())    /* outside */                    \
  ENTITIES(portGroup, PortGroup, PortGroup)                                                  \
  ENTITIES(dvs, Dvs, DVS)                                                                    \
  VALUES(dcRefTodcName, DcRefTodcName, Kel::String8, Kel::String8, Kel::HashMap)             \
  VALUES(hostFolderTodcRef, HostFolderTodcRef, Kel::String8, Kel::String8, Kel::HashMap)     \
  VALUES(compResToHostFolder, CompResToHostFolder, Kel::String8, Kel::String8, Kel::HashMap) \
  ENTITIES(vm, Vm, Vm)                                                                       \
  ENTITIES(esxHost, EsxHost, EsxHost)                                                        \
  VALUES(modifiedVms, ModifiedVms, Kel::String8, Kel::String8, Kel::HashMap)                 \
  VALUES(modifiedHosts, ModifiedHosts, Kel::String8, Kel::String8, Kel::HashMap) /* outside */ \
  VALUES(newPort, NewPort, Kel::String8, Kel::String8, Kel::HashMap)                         \
  VALUES(shutDownPorts, ShutDownPorts, Kel::String8, Kel::String8, Kel::HashMap)             \
  ENTITIES(intfToEsxMap, IntfToEsxMap, IntfToEsxMap)                                         \
  SCALAR(portKey, PortKey, Kel::String8, Kel::String8())    /* outside */                    \
  SCALAR(linkUpEvent, LinkUpEvent, unsigned, 0)             /* outside */                    \
  SCALAR(linkDownEvent, LinkDownEvent, unsigned, 0)         /* outside */                    \
  SCALAR(initialWaitForUpdate, InitialWaitForUpdate, bool, false)                            \
  SCALAR(initialSync, InitialSync, bool, false)                                              \
  VALUES(responsesWithCallback, ResponsesWithCallback, unsigned, WebServiceResponse::Ptr, Kel::HashMap)

class VI : public Kel::Entity {
  KEL_RECORD(Harbec, VI, Kel::Entity, HARBEC_VI_ATTRIBUTES)
 protected:
  explicit VI(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(VI, vIFactory)

}  // namespace Harbec
