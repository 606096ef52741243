// The functions that apply vCenter's property changes and events to the
// inventory. Each takes one object update of its own managed object type and
// the VI, runs with the activity lock held by the update loop, never talks
// to vCenter, and may raise.
#pragma once
#include <string>

#include "inventory/VI.h"
#include "soapH.h"

namespace Harbec {

// Whether an object update carries property changes: an enter or a modify.
inline bool carriesChanges(const ns2__ObjectUpdate* update) {
  return update->kind == ns2__ObjectUpdateKind__modify || update->kind == ns2__ObjectUpdateKind__enter;
}

// A simple property value: a string, or the text of a value of a type the
// stubs do not know (a boolean, an enumeration kept open).
inline std::string simpleValue(const xsd__anyType* val) {
  if (val->soap_type() == SOAP_TYPE_xsd__string) return static_cast<const xsd__string*>(val)->__item;
  return val->__item ? std::string(val->__item) : std::string();
}
// An xsd:boolean property value; absent or unreadable is false.
inline bool booleanValue(const xsd__anyType* val) {
  if (!val) return false;
  const std::string text = simpleValue(val);
  return text == "true" || text == "1";
}

// Containers and networks.
void processDVSUpdates(ns2__ObjectUpdate* update, Kel::Ptr<VI> vi);
void processDCUpdates(ns2__ObjectUpdate* update, Kel::Ptr<VI> vi);
void processCompResUpdates(ns2__ObjectUpdate* update, Kel::Ptr<VI> vi);
void processPortGroupUpdates(ns2__ObjectUpdate* update, Kel::Ptr<VI> vi);

// Hosts and their networking.
void processHostUpdates(ns2__ObjectUpdate* update, Kel::Ptr<VI> vi);
void processHostProxySwitch(VI::Ptr vi, EsxHost::Ptr host, ns2__HostNetworkInfo* networkInfo,
                            Pnic::Ptr pnic, Kel::String8 deviceName);
void inflateHostVnic(Vnic::Ptr vnic, ns2__HostVirtualNic* hostVnic);

// Virtual machines.
void processVMUpdates(ns2__ObjectUpdate* update, Kel::Ptr<VI> vi);
void updateVnic(Vm::Ptr vm, ns2__VirtualEthernetCard* card, VI::Ptr vi);

// The event stream of the event history collector.
void processPortEvents(ns2__ObjectUpdate* update, Kel::Ptr<VI> vi);
void processEvent(VI::Ptr vi, ns2__Event* event);
void processPortEvent(VI::Ptr vi, ns2__Event* event);
void updateLinkStatus(VI::Ptr vi, std::string portKey, Interface::LinkStatus status);

}  // namespace Harbec
