// The event stream: the latest page of the event history collector, taken
// apart into single events. Migrations set the vMotion attributes of their
// machine and tell the operator; DV port link events reach the NIC on the
// port.
#include <ctime>
#include <vector>

#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "session/connection/HarbecLog.h"
#include "session/updates/UpdateHandlers.h"

namespace Harbec {

namespace {

std::string argName(const ns2__EntityEventArgument* arg) { return arg ? arg->name : std::string(); }

std::string refValue(const ns2__ManagedObjectReference* ref) { return ref ? ref->__item : std::string(); }

std::string hostRef(const ns2__HostEventArgument* arg) { return arg ? refValue(arg->host) : std::string(); }

std::string createdTime(time_t t) {
  char text[32];
  return ctime_r(&t, text) ? text : "";
}

enum class Migration { started, ended, failed };

void processMigration(VI::Ptr vi, ns2__Event* event, Migration what) {
  const std::string vmKey = event->vm ? refValue(event->vm->vm) : std::string();
  Vm::Ptr vm = vi->vm(Kel::Name(vmKey));
  if (!vm) return;
  const std::string hostName = argName(event->host);
  switch (what) {
    case Migration::started: {
      const ns2__HostEventArgument* dest = static_cast<ns2__VmBeingHotMigratedEvent*>(event)->destHost;
      vm->vmotionFailedIs(false);
      vm->vmotionDstIs(hostRef(dest));
      vm->inVmotionIs(true);
      Kel::log(HARBEC_VMOTION_STARTED, vm->vmName(), hostName, argName(dest));
      break;
    }
    case Migration::ended:
      // vmotionDst stays, as the last destination.
      vm->vmotionFailedIs(false);
      vm->inVmotionIs(false);
      Kel::log(HARBEC_VMOTION_END, vm->vmName(), hostName);
      break;
    case Migration::failed:
      vm->vmotionFailedIs(true);
      vm->vmotionDstIs("");
      vm->inVmotionIs(false);
      break;
  }
}

}  // namespace

void processPortEvents(ns2__ObjectUpdate* objUpdate, VI::Ptr vi) {
  HARBEC_TRACE(5, "void Harbec::processPortEvents(ns2__ObjectUpdate*, Harbec::VI::Ptr)");
  if (!carriesChanges(objUpdate)) return;
  for (ns2__PropertyChange* change : objUpdate->changeSet) {
    if (!change) continue;
    HARBEC_TRACE(6, "ChangeSet: " << change->name);
    // Indexed forms of the name ("latestPage[...]") count as well.
    if (change->name.find("latestPage") == std::string::npos || !change->val) continue;
    if (auto* page = dynamic_cast<ns2__ArrayOfEvent*>(change->val)) {
      const std::vector<ns2__Event*> events = page->Event;
      HARBEC_TRACE(7, "Process array of events size: " << events.size());
      // From the last to the first: the order decides a machine's final state.
      for (auto i = events.rbegin(); i != events.rend(); ++i) {
        if (*i) processEvent(vi, *i);
      }
    } else if (auto* event = dynamic_cast<ns2__Event*>(change->val)) {
      HARBEC_TRACE(7, "Process single event");
      processEvent(vi, event);
    }
  }
}

void processEvent(VI::Ptr vi, ns2__Event* event) {
  HARBEC_TRACE(5, "void Harbec::processEvent(Harbec::VI::Ptr, ns2__Event*)"
                      << " createdTime: " << createdTime(event->createdTime));
  const long type = event->soap_type();
  if (type == SOAP_TYPE_ns2__DvsDestroyedEvent) {
    HARBEC_TRACE(6, "DvsDestroyedEvent");  // the switch goes by its leave record
  } else if (type == SOAP_TYPE_ns2__DvsRenamedEvent) {
    HARBEC_TRACE(6, "DvsRenamedEvent");  // the name comes by its "name" change
  } else if (type == SOAP_TYPE_ns2__VmBeingHotMigratedEvent) {
    const ns2__HostEventArgument* dest = static_cast<ns2__VmBeingHotMigratedEvent*>(event)->destHost;
    HARBEC_TRACE(6, "VmBeingHotMigratedEvent");
    HARBEC_TRACE(7, "Vm in migration event " << argName(event->vm));
    HARBEC_TRACE(7, argName(event->host) << " --> " << argName(dest));
    HARBEC_TRACE(7, hostRef(event->host) << " --> " << hostRef(dest));
    processMigration(vi, event, Migration::started);
  } else if (type == SOAP_TYPE_ns2__VmFailedMigrateEvent) {
    HARBEC_TRACE(6, "VmFailedMigrateEvent");
    HARBEC_TRACE(7, "Vm migrationfailed event " << argName(event->vm));
    processMigration(vi, event, Migration::failed);
  } else if (type == SOAP_TYPE_ns2__VmMigratedEvent || type == SOAP_TYPE_ns2__DrsVmMigratedEvent) {
    // A migration that DRS started ends the same way.
    HARBEC_TRACE(6, "VmMigratedEvent");
    HARBEC_TRACE(7, "Vm migrated event " << argName(event->vm));
    processMigration(vi, event, Migration::ended);
  } else {
    processPortEvent(vi, event);
  }
}

void processPortEvent(VI::Ptr vi, ns2__Event* event) {
  HARBEC_TRACE(5, "void Harbec::processPortEvent(Harbec::VI::Ptr, ns2__Event*)");
  const long type = event->soap_type();
  if (type == SOAP_TYPE_ns2__DvsPortLinkUpEvent) {
    const std::string& portKey = static_cast<ns2__DvsPortLinkUpEvent*>(event)->portKey;
    HARBEC_TRACE(6, "Port linkup event port " << portKey);
    updateLinkStatus(vi, portKey, Interface::linkStatusUp);
  } else if (type == SOAP_TYPE_ns2__DvsPortLinkDownEvent) {
    const std::string& portKey = static_cast<ns2__DvsPortLinkDownEvent*>(event)->portKey;
    HARBEC_TRACE(6, "Port linkdown event port " << portKey);
    updateLinkStatus(vi, portKey, Interface::linkStatusDown);
  } else {
    HARBEC_TRACE(0, "Unknown event type " << type);
  }
}

void updateLinkStatus(VI::Ptr vi, std::string portKey, Interface::LinkStatus status) {
  HARBEC_TRACE(5, "void Harbec::updateLinkStatus(Harbec::VI::Ptr, std::string, Interface::LinkStatus)");
  // Called from the update loop, which holds the lock already; then the
  // anchor leaves the unlock to the loop.
  Kel::ActivityLockAnchor anchor;
  const Kel::String8 key(portKey);
  // The first NIC of a machine on the port wins, whatever its switch.
  for (auto vm = vi->vmIterator(); vm; ++vm) {
    for (auto vnic = vm.value()->vnicIterator(); vnic; ++vnic) {
      if (vnic.value()->portKey() == key) {
        vnic.value()->linkStatusIs(status);
        return;
      }
    }
  }
  // Else every physical NIC on that uplink port, on every host.
  for (auto host = vi->esxHostIterator(); host; ++host) {
    for (auto pnic = host.value()->pnicIterator(); pnic; ++pnic) {
      if (pnic.value()->uplinkPortKey() == key) pnic.value()->linkStatusIs(status);
    }
  }
}

}  // namespace Harbec
