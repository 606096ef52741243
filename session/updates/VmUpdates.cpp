// Property changes of vCenter VirtualMachine objects: a machine's name, host,
// power state and fault-tolerance role, and its virtual NICs.
#include "Kel/Assert.h"
#include "messaging/HarbecTrace.h"
#include "session/updates/Deletion.h"
#include "session/updates/UpdateHandlers.h"

namespace Harbec {

namespace {

void updateHardware(Vm::Ptr vm, xsd__anyType* val, VI::Ptr vi) {
  auto* hardware = dynamic_cast<ns2__VirtualHardware*>(val);
  if (!hardware) {
    HARBEC_TRACE(1, "VM without hardware config");
    return;
  }
  // Mark and sweep: the cards of this configuration mark their NICs active.
  for (auto i = vm->vnicIterator(); i; ++i) i.value()->activeIs(false);
  for (ns2__VirtualDevice* device : hardware->device) {
    if (auto* card = dynamic_cast<ns2__VirtualEthernetCard*>(device)) updateVnic(vm, card, vi);
  }
  delVNics(vm, vi, true);
}

void updateHost(Vm::Ptr vm, xsd__anyType* val, VI::Ptr vi) {
  auto* ref = dynamic_cast<ns2__ManagedObjectReference*>(val);
  if (!ref) {
    HARBEC_TRACE(1, "VM without host info");
    vm->hostRefIs("");
    return;
  }
  HARBEC_TRACE(6, "  host mor " << ref->__item);
  // Host records come ahead of machine records, so the host is known.
  EsxHost::Ptr host = vi->esxHost(Kel::Name(ref->__item));
  vm->hostRefIs(ref->__item);
  vm->hostNameIs(host ? host->hostName() : Kel::String8());
}

void updateFtStatus(Vm::Ptr vm, xsd__anyType* val) {
  auto* ft = dynamic_cast<ns2__FaultToleranceConfigInfo*>(val);
  if (!ft) {
    HARBEC_TRACE(6, "FtInfo invalid");
    vm->ftStatusIs(ftDisabled);
  } else if (dynamic_cast<ns2__FaultTolerancePrimaryConfigInfo*>(ft)) {
    HARBEC_TRACE(6, "FtInfo active");
    vm->ftStatusIs(ftActive);
  } else {
    HARBEC_TRACE(6, "FtInfo standby");
    vm->ftStatusIs(ftStandby);
  }
}

}  // namespace

void processVMUpdates(ns2__ObjectUpdate* objUpdate, VI::Ptr vi) {
  HARBEC_TRACE(5, "void Harbec::processVMUpdates(ns2__ObjectUpdate*, Harbec::VI::Ptr)");
  const Kel::Name key(objUpdate->obj->__item);
  Vm::Ptr vm = vi->vm(key);
  switch (objUpdate->kind) {
    case ns2__ObjectUpdateKind__enter:
      KEL_ASSERT(!vm);
      vm = vi->vmIs(key);
      break;
    case ns2__ObjectUpdateKind__modify:
      KEL_ASSERT(vm);
      break;
    case ns2__ObjectUpdateKind__leave:
      if (vm) delVM(vm, vi);
      return;
    default:
      return;
  }
  HARBEC_TRACE(6, "Vm " << key);

  for (ns2__PropertyChange* change : objUpdate->changeSet) {
    if (!change) continue;
    const std::string& name = change->name;
    HARBEC_TRACE(6, "Change set name " << name);
    if (name == "config.hardware") {
      updateHardware(vm, change->val, vi);
    } else if (name == "name") {
      if (auto* text = dynamic_cast<xsd__string*>(change->val)) {
        HARBEC_TRACE(6, "  name " << text->__item);
        vm->vmNameIs(text->__item);
      }
    } else if (name == "runtime.host") {
      updateHost(vm, change->val, vi);
    } else if (name == "runtime.powerState") {
      if (auto* power = dynamic_cast<ns2__VirtualMachinePowerState_*>(change->val)) {
        HARBEC_TRACE(6, "VM Powerstate " << power->__item);
        // Only poweredOn counts as on; suspended is off.
        vm->powerStateIs(power->__item == ns2__VirtualMachinePowerState__poweredOn);
      }
    } else if (name == "config.ftInfo") {
      updateFtStatus(vm, change->val);
    } else if (name == "config.template") {
      if (change->val) vm->isTemplateIs(booleanValue(change->val));
    }
  }
  // Every enter and modify record marks the machine, with or without effect.
  vi->modifiedVmsIs(key, key);
}

void updateVnic(Vm::Ptr vm, ns2__VirtualEthernetCard* card, VI::Ptr) {
  HARBEC_TRACE(5, "void Harbec::updateVnic(Harbec::Vm::Ptr, ns2__VirtualEthernetCard*, Harbec::VI::Ptr)");
  const Kel::String8 mac = card->macAddress ? Kel::String8(*card->macAddress) : Kel::String8();
  HARBEC_TRACE(5, "  macAddress " << mac << " Key " << card->key);
  Vnic::Ptr vnic = vm->vnicIs(Kel::format("%d", card->key));
  vnic->macAddressIs(mac);
  if (card->deviceInfo) vnic->labelIs(card->deviceInfo->label);

  // A card with no backing keeps what it had.
  if (ns2__VirtualDeviceBackingInfo* backing = card->backing) {
    const long type = backing->soap_type();
    HARBEC_TRACE(6, "Backing Type: " << type);
    if (type == SOAP_TYPE_ns2__VirtualEthernetCardDistributedVirtualPortBackingInfo) {
      auto* dvPort = static_cast<ns2__VirtualEthernetCardDistributedVirtualPortBackingInfo*>(backing);
      if (ns2__DistributedVirtualSwitchPortConnection* port = dvPort->port) {
        vnic->switchIdIs(port->switchUuid);
        if (port->portKey) vnic->portKeyIs(*port->portKey);
        if (port->portgroupKey) vnic->portGroupIs(*port->portgroupKey);
      }
    } else if (type == SOAP_TYPE_ns2__VirtualEthernetCardNetworkBackingInfo) {
      // A standard switch: the port group is known by the network's name.
      vnic->switchIdIs("");
      vnic->portKeyIs("");
      vnic->portGroupIs(static_cast<ns2__VirtualEthernetCardNetworkBackingInfo*>(backing)->deviceName);
    } else {
      vnic->switchIdIs("");
      vnic->portKeyIs("");
      vnic->portGroupIs("");
    }
    // The networks that have no port group are kept beside.
    auto* opaque = dynamic_cast<ns2__VirtualEthernetCardOpaqueNetworkBackingInfo*>(backing);
    auto* legacy = dynamic_cast<ns2__VirtualEthernetCardLegacyNetworkBackingInfo*>(backing);
    vnic->opaqueNetworkIdIs(opaque ? opaque->opaqueNetworkId : std::string());
    vnic->opaqueNetworkTypeIs(opaque ? opaque->opaqueNetworkType : std::string());
    vnic->legacyNetworkIs(legacy ? legacy->deviceName : std::string());
  }
  vnic->activeIs(true);
  vnic->configIdIs(vnic->configId() + 1);

  HARBEC_TRACE(6, "VnicUpdated");
  HARBEC_TRACE(6, "  mac: " << vnic->macAddress());
  HARBEC_TRACE(6, "  label: " << vnic->label());
  HARBEC_TRACE(6, "  switchId: " << vnic->switchId());
  HARBEC_TRACE(6, "  portKey: " << vnic->portKey());
  HARBEC_TRACE(6, "  portGroup: " << vnic->portGroup());
}

}  // namespace Harbec
