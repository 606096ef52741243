// What the update thread asks vCenter to report after a login: one property
// filter over the whole inventory from the root folder, and an event
// history collector for VM migrations with a second filter on its latest
// page. The records are local and linked by plain pointers; traversals
// refer to each other by name.
#include "messaging/HarbecTrace.h"
#include "session/HarbecSmInternal.h"
#include "session/connection/Exchange.h"

namespace Harbec {

namespace {

// A reference to another traversal by its name.
struct SelectionByName : ns2__SelectionSpec {
  explicit SelectionByName(const char* spec) : text(spec) { name = &text; }
  std::string text;
};

struct Traversal : ns2__TraversalSpec {
  Traversal(const char* spec, const char* over, const char* along) : text(spec) {
    name = &text;
    type = over;
    path = along;
    skip = &xsd_false;
  }
  std::string text;
};

ns2__PropertySpec propertySpec(const char* type, std::vector<std::string> paths) {
  ns2__PropertySpec spec;
  spec.type = type;
  spec.all = &xsd_false;
  spec.pathSet = std::move(paths);
  return spec;
}

// Installs a filter on the property collector, whole values only, and
// keeps the value of its reference; the type stays unset.
void createFilter(Kel::Ptr<HarbecSm> sm, ns2__PropertyFilterSpec* spec, const char* success,
                  ns2__ManagedObjectReference& filterRef) {
  ns2__CreateFilterRequestType request;
  request._USCOREthis = &propertyCollectorRef;
  request.spec = spec;
  request.partialUpdates = false;
  _ns2__CreateFilterResponse response;
  if (!exchange(*sm, soapMsgCreateFilter, &VimBinding::__ns2__CreateFilter, request, response))
    throw SoapException(SoapException::connectionException, "CreateFilter");
  HARBEC_TRACE(6, success);
  if (response.returnval) filterRef.__item = response.returnval->__item;
}

}  // namespace

void createPropFilter(Kel::Ptr<HarbecSm> sm) {
  HARBEC_TRACE_ENTRY();
  Traversal folderTravSpec("folderTravSpec", "Folder", "childEntity");
  Traversal dcVMTravSpec("dcVMTravSpec", "Datacenter", "vmFolder");
  Traversal dcNwFolderTravSpec("dcNwFolderTravSpec", "Datacenter", "networkFolder");
  Traversal dcHostTravSpec("dcHostTravSpec", "Datacenter", "hostFolder");
  Traversal compResHostTravSpec("compResHostTravSpec", "ComputeResource", "host");
  Traversal clusterCompResHostTravSpec("clusterCompResHostTravSpec", "ClusterComputeResource", "host");
  // Prepared with its selection and deliberately never sent: networks are
  // reached through the network folder.
  Traversal dcNwTravSpec("dcNwTravSpec", "Datacenter", "network");
  // vCenter files a vApp's machines in the vApp alone, in no folder, and
  // a vApp nested in another among the other's resource pools.
  Traversal vAppVmTravSpec("vAppVmTravSpec", "VirtualApp", "vm");
  Traversal vAppChildTravSpec("vAppChildTravSpec", "VirtualApp", "resourcePool");

  SelectionByName folderSel("folderTravSpec");
  SelectionByName dcVMSel("dcVMTravSpec");
  SelectionByName dcNwFolderSel("dcNwFolderTravSpec");
  SelectionByName dcHostSel("dcHostTravSpec");
  SelectionByName compResHostSel("compResHostTravSpec");
  SelectionByName dcNwSel("dcNwTravSpec");
  SelectionByName vAppVmSel("vAppVmTravSpec");
  SelectionByName vAppChildSel("vAppChildTravSpec");

  // Clusters are reached through the object spec's own list alone.
  folderTravSpec.selectSet = {&dcVMSel, &dcHostSel, &folderSel, &dcNwFolderSel, &compResHostSel, &vAppVmSel,
                              &vAppChildSel};
  vAppChildTravSpec.selectSet = {&vAppVmSel, &vAppChildSel};
  dcVMTravSpec.selectSet = {&folderSel};
  dcNwFolderTravSpec.selectSet = {&folderSel};
  dcHostTravSpec.selectSet = {&folderSel};

  ns2__ObjectSpec objectSpec;
  objectSpec.obj = &rootFolderRef;
  objectSpec.skip = &xsd_false;
  objectSpec.selectSet = {&folderTravSpec,      &dcVMTravSpec,        &dcNwFolderTravSpec,
                          &dcHostTravSpec,      &compResHostTravSpec, &clusterCompResHostTravSpec,
                          &vAppVmTravSpec,      &vAppChildTravSpec};

  // A switch's PVLAN map comes with it: PVLAN port groups name only their
  // secondary VLAN.
  ns2__PropertySpec dvsSpec = propertySpec("VmwareDistributedVirtualSwitch", {"name", "uuid", "config.pvlanConfig"});
  // Beside what the inventory needs: whether a machine is a template, and
  // whether vCenter reaches a host and the host is in maintenance.
  ns2__PropertySpec vmSpec = propertySpec("VirtualMachine", {"name", "runtime.powerState", "config.hardware",
                                                             "runtime.host", "config.ftInfo", "config.template"});
  ns2__PropertySpec hostSpec =
      propertySpec("HostSystem", {"name", "config.network", "configManager.networkSystem", "parent", "hardware",
                                  "runtime.connectionState", "runtime.inMaintenanceMode"});
  ns2__PropertySpec pgSpec = propertySpec("DistributedVirtualPortgroup", {"name", "config"});
  ns2__PropertySpec dcSpec = propertySpec("Datacenter", {"name", "hostFolder"});
  ns2__PropertySpec compResSpec = propertySpec("ComputeResource", {"parent"});

  ns2__PropertyFilterSpec filterSpec;
  filterSpec.propSet = {&dvsSpec, &vmSpec, &hostSpec, &pgSpec, &dcSpec, &compResSpec};
  filterSpec.objectSet = {&objectSpec};

  createFilter(sm, &filterSpec, "CreateFilter successful", propFilterObjRef);
}

void createEventFilter(Kel::Ptr<HarbecSm> sm) {
  HARBEC_TRACE_ENTRY();
  // The collector starts at vCenter's own present time.
  time_t now = 0;
  try {
    getCurrentTimeOnvCenter(sm, now);
  } catch (const SoapException&) {
    throw SoapException(SoapException::connectionException, "CurrentTime");
  }

  // The collector is asked for twice, the first time with an empty filter;
  // that first one stays idle at the server.
  ns2__EventFilterSpec filter;
  ns2__CreateCollectorForEventsRequestType collectorRequest;
  collectorRequest._USCOREthis = &eventManagerRef;
  collectorRequest.filter = &filter;
  _ns2__CreateCollectorForEventsResponse collectorResponse;
  if (!exchange(*sm, soapMsgCreateCollector, &VimBinding::__ns2__CreateCollectorForEvents, collectorRequest,
                collectorResponse, Counted::failureOnly))
    throw SoapException(SoapException::connectionException, "CreateCollectorForEvents");

  ns2__EventFilterSpecByEntity byEntity;
  byEntity.entity = &rootFolderRef;
  byEntity.recursion = ns2__EventFilterSpecRecursionOption__self;  // the first value
  ns2__EventFilterSpecByTime byTime;
  byTime.beginTime = &now;
  byTime.endTime = nullptr;
  filter.entity = &byEntity;
  filter.time = &byTime;
  filter.type = {"VmMigratedEvent", "VmBeingHotMigratedEvent", "VmFailedMigrateEvent"};

  if (!exchange(*sm, soapMsgCreateCollector, &VimBinding::__ns2__CreateCollectorForEvents, collectorRequest,
                collectorResponse)) {
    HARBEC_TRACE(6, "Event collector successful");  // on this path, whatever it says
    throw SoapException(SoapException::connectionException, "CreateCollectorForEvents");
  }
  ns2__ManagedObjectReference* collector = collectorResponse.returnval;

  ns2__SetCollectorPageSizeRequestType pageSizeRequest;
  pageSizeRequest._USCOREthis = collector;
  pageSizeRequest.maxCount = 100;
  _ns2__SetCollectorPageSizeResponse pageSizeResponse;
  if (!exchange(*sm, soapMsgSetPageSize, &VimBinding::__ns2__SetCollectorPageSize, pageSizeRequest,
                pageSizeResponse)) {
    HARBEC_TRACE(6, "Event filter page size creation successful");  // likewise
    throw SoapException(SoapException::connectionException, "SetCollectorPageSize");
  }

  ns2__PropertySpec pageSpec = propertySpec("EventHistoryCollector", {"latestPage"});
  ns2__ObjectSpec collectorSpec;
  collectorSpec.obj = collector;
  collectorSpec.skip = &xsd_false;
  ns2__PropertyFilterSpec filterSpec;
  filterSpec.propSet = {&pageSpec};
  filterSpec.objectSet = {&collectorSpec};
  createFilter(sm, &filterSpec, "Event filter creation successful", eventPropFilterObjRef);
}

}  // namespace Harbec
