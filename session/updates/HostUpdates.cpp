// Property changes of vCenter's HostSystem objects: a host's identity, its
// hardware and, through the network reconciliation, its NICs, switches and
// port groups.
#include <string>

#include "Kel/Assert.h"
#include "messaging/HarbecTrace.h"
#include "session/updates/Deletion.h"
#include "session/updates/HostIds.h"
#include "session/updates/HostNetworking.h"
#include "session/updates/UpdateHandlers.h"

namespace Harbec {

namespace {


void processHardware(EsxHost::Ptr host, ns2__HostHardwareInfo* hardware, PciTables& pci) {
  HARBEC_TRACE(6, "Hardware Update");
  if (!hardware->cpuPkg.empty() && hardware->cpuPkg[0]) {
    host->cpuDescriptionIs(hardware->cpuPkg[0]->description);
    HARBEC_TRACE(7, "CPU description " << hardware->cpuPkg[0]->description);
  }
  if (ns2__HostCpuInfo* cpu = hardware->cpuInfo) {
    host->numCpusIs(static_cast<unsigned>(cpu->numCpuPackages));
    host->numCoresIs(static_cast<unsigned>(cpu->numCpuCores));
    HARBEC_TRACE(7, "CPU cores " << cpu->numCpuCores);
  }
  if (ns2__HostSystemInfo* system = hardware->systemInfo) {
    host->vendorIs(system->vendor);
    HARBEC_TRACE(7, "host vendor " << system->vendor);
    host->modelIs(system->model);
    HARBEC_TRACE(7, "host model " << system->model);
    // Every service tag is taken in turn: the last one stays.
    for (ns2__HostSystemIdentificationInfo* info : system->otherIdentifyingInfo) {
      if (!info->identifierType || info->identifierType->key != "ServiceTag") continue;
      host->serviceTagIs(info->identifierValue);
      HARBEC_TRACE(7, "service tag " << info->identifierValue);
    }
  }
  for (ns2__HostPciDevice* device : hardware->pciDevice) {
    pci.pciIdToVendor[device->id] = device->vendorName;
    pci.pciIdToDeviceName[device->id] = device->deviceName;
    HARBEC_TRACE(7, "pci id " << device->id << " vendor " << device->vendorName << " device "
                              << device->deviceName);
  }
}

// The host's name, also on its kernel machine, which counts as powered on.
void processName(EsxHost::Ptr host, xsd__anyType* val) {
  HARBEC_TRACE(6, "Name Update");
  // A name change without a value leaves the name as it was.
  if (!val) {
    HARBEC_TRACE(3, "Name Update without a value");
    return;
  }
  Kel::String8 name = simpleValue(val);
  host->hostNameIs(name);
  host->vm()->hostNameIs(name);
  host->vm()->powerStateIs(true);
  HARBEC_TRACE(7, "Host name " << name);
}

// The compute resource that holds the host, and through its host folder
// the datacenter. Datacenters and compute resources come first in a set,
// so their tables are filled by now; a chain with a gap leaves dcRef.
void processParent(VI::Ptr vi, EsxHost::Ptr host, ns2__ManagedObjectReference* parent) {
  HARBEC_TRACE(6, "Parent Update");
  Kel::String8 parentRef(parent->__item);
  Kel::String8 hostFolder = vi->compResToHostFolder(parentRef);
  host->parentRefIs(parentRef);
  if (hostFolder.length() == 0) return;
  Kel::String8 dcRef = vi->hostFolderTodcRef(hostFolder);
  if (dcRef.length() == 0) return;
  host->dcRefIs(dcRef);
  HARBEC_TRACE(7, "dcName   " << vi->dcRefTodcName(dcRef) << " dcRef " << dcRef);
}

// The changes other than "hardware", in the order of the record.
void processChange(VI::Ptr vi, EsxHost::Ptr host, ns2__PropertyChange* change, const PciTables& pci) {
  const std::string& name = change->name;
  if (name == "name") {
    processName(host, change->val);
    return;
  }
  if (!change->val) return;
  if (name == "config.network") {
    if (auto* networkInfo = dynamic_cast<ns2__HostNetworkInfo*>(change->val))
      processHostNetwork(vi, host, networkInfo, pci);
  } else if (name == "configManager.networkSystem") {
    if (auto* networkSystem = dynamic_cast<ns2__ManagedObjectReference*>(change->val)) {
      HARBEC_TRACE(6, "ConfigManager.networksSystem Update");
      host->networkIdIs(networkSystem->__item);
      HARBEC_TRACE(7, "NetworkId  " << networkSystem->__item);
    }
  } else if (name == "parent") {
    if (auto* parent = dynamic_cast<ns2__ManagedObjectReference*>(change->val)) processParent(vi, host, parent);
  } else if (name == "runtime.connectionState") {
    host->connectionStateIs(simpleValue(change->val));
  } else if (name == "runtime.inMaintenanceMode") {
    host->inMaintenanceIs(booleanValue(change->val));
  }
}

}  // namespace

void processHostUpdates(ns2__ObjectUpdate* objUpdate, Kel::Ptr<VI> vi) {
  HARBEC_TRACE(5, "void Harbec::processHostUpdates(ns2__ObjectUpdate*, Harbec::VI::Ptr)");
  Kel::Name key(objUpdate->obj->__item);
  EsxHost::Ptr host = vi->esxHost(key);

  if (objUpdate->kind == ns2__ObjectUpdateKind__leave) {
    // The stream sends no leave for a host it has not entered; should one
    // come all the same, there is nothing to remove.
    if (!host) {
      HARBEC_TRACE(1, "Leave of unknown host " << key);
      return;
    }
    delHost(host, vi);
    return;
  }
  if (!carriesChanges(objUpdate)) return;

  // An enter of a host that is there counts as a modify; a modify of a host
  // that is not there is a fault of the stream, fatal once the host is made.
  if (!host) {
    host = vi->esxHostIs(key, getHostId());
    KEL_ASSERT(objUpdate->kind != ns2__ObjectUpdateKind__modify);
  }
  if (!host->vm()) host->vmIs(vi->vmIs(key));

  // The PCI tables are complete before any NIC is visited, whatever the
  // order of the changes.
  PciTables pci;
  for (ns2__PropertyChange* change : objUpdate->changeSet) {
    if (change->name != "hardware" || !change->val) continue;
    if (auto* hardware = dynamic_cast<ns2__HostHardwareInfo*>(change->val)) processHardware(host, hardware, pci);
  }
  for (ns2__PropertyChange* change : objUpdate->changeSet) processChange(vi, host, change, pci);

  // Whatever a network configuration of this record did not name goes.
  delNics(host, vi, true);
}

}  // namespace Harbec
