// The update loop of the instance that owns the inventory: change sets from
// WaitForUpdates or CheckForUpdates, fed into the tree in a fixed order of
// rounds under the activity lock, in place in the soap context's memory.
// Pending port shutdowns go out before each call, DV port data is refreshed
// after each.
#include <vector>

#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "session/HarbecSmInternal.h"
#include "session/connection/Exchange.h"
#include "session/updates/UpdateHandlers.h"
#include "vim25/ReadCount.h"

namespace Harbec {

namespace {

// Which of the two update calls a round makes, with its own trace texts.
template <class Request, class Response>
struct UpdateCall {
  VimMethod<Request, Response> method;
  const char* name;        // the exception's text
  const char* versionText;
  int successLevel;        // of the success trace and the object count
  const char* successText;
};

const UpdateCall<ns2__WaitForUpdatesRequestType, _ns2__WaitForUpdatesResponse> kWait{
    &VimBinding::__ns2__WaitForUpdates, "WaitForUpdates", "WaitForUpdates version", 8, "WaitForUpdates successful"};
const UpdateCall<ns2__CheckForUpdatesRequestType, _ns2__CheckForUpdatesResponse> kCheck{
    &VimBinding::__ns2__CheckForUpdates, "CheckForUpdates", "checkforupdate version", 6,
    "CheckForUpdates successful"};

// One round: pending port shutdowns, the call with the version taken so
// far, the set applied, and the DV ports asked for by the set fetched.
template <class Request, class Response>
void updateRound(Kel::Ptr<HarbecSm> sm, const UpdateCall<Request, Response>& call) {
  FreeSoapMem freeSoapMem(sm->vim());
  applyConfig(sm);
  std::string version = sm->version().str();
  Request request;
  request._USCOREthis = &propertyCollectorRef;
  request.version = &version;
  HARBEC_TRACE(6, call.versionText << version);
  Response response;
  if (!exchange(*sm, soapMsgUpdates, call.method, request, response))
    throw SoapException(SoapException::fatalRpcException, call.name);
  HARBEC_TRACE(call.successLevel, call.successText);
  if (response.returnval) {
    HARBEC_TRACE(call.successLevel, "Number of Objects " << response.returnval->filterSet.size());
    processUpdateSet(sm, response.returnval);
  }
  fetchDvPorts(sm);
}

}  // namespace

void waitForUpdates(Kel::Ptr<HarbecSm> sm) {
  HARBEC_TRACE_ENTRY();
  // vCenter answers only when it has something to tell: no limit on the
  // wait, until the next connect resets the context.
  sm->vim()->soap->recv_timeout = 0;
  for (;;) {
    HARBEC_TRACE(6, "Waiting for update.");
    updateRound(sm, kWait);
  }
}

void checkForUpdates(Kel::Ptr<HarbecSm> sm) {
  HARBEC_TRACE_ENTRY();
  updateRound(sm, kCheck);
}

void applyConfig(Kel::Ptr<HarbecSm> sm) {
  HARBEC_TRACE_ENTRY();
  VI::Ptr vi = sm->vi();
  std::vector<Kel::String8> keys;
  {
    Kel::ActivityLockAnchor anchor;
    if (vi->shutDownPortss() == 0) return;
    for (auto i = vi->shutDownPortsIterator(); i; ++i) keys.push_back(i.key());
  }
  // The blocks go out without the lock. An entry goes once its block is
  // through, whatever its effect; only a failure leaves it for next time.
  for (const Kel::String8& key : keys) {
    HARBEC_TRACE(7, "Shutdown DVPORT for " << key);
    blockPort(sm, key, true);
    Kel::ActivityLockAnchor anchor;
    vi->shutDownPortsDel(key);
  }
}

void processUpdates(Kel::Ptr<VI> vi, ns2__UpdateSet* set, void (*fn)(ns2__ObjectUpdate*, Kel::Ptr<VI>),
                    std::string objType, bool all, ns2__ObjectUpdateKind kind) {
  HARBEC_TRACE(5, __PRETTY_FUNCTION__ << " objType: " << objType);
  // Sizes are read anew after each call: a handler may change the set.
  for (size_t f = 0; f < set->filterSet.size(); ++f) {
    ns2__PropertyFilterUpdate* filter = set->filterSet[f];
    if (!filter || !filter->filter || !filter->filter->type || *filter->filter->type != "PropertyFilter") continue;
    for (size_t o = 0; o < filter->objectSet.size(); ++o) {
      ns2__ObjectUpdate* update = filter->objectSet[o];
      if (!update || !update->obj) continue;
      if (!all && update->kind != kind) continue;
      const std::string* type = update->obj->type;
      if (type && *type == objType) fn(update, vi);
    }
  }
}

void processUpdateSet(Kel::Ptr<HarbecSm> sm, ns2__UpdateSet* set) {
  HARBEC_TRACE_ENTRY();
  // Held through all rounds: readers see a set whole or not at all.
  Kel::ActivityLockAnchor anchor;
  VI::Ptr vi = sm->vi();
  constexpr ns2__ObjectUpdateKind modify = ns2__ObjectUpdateKind__modify;
  constexpr ns2__ObjectUpdateKind enter = ns2__ObjectUpdateKind__enter;
  constexpr ns2__ObjectUpdateKind leave = ns2__ObjectUpdateKind__leave;
  // Containers and networks first; then what has gone, machines before
  // hosts; then what has come, hosts before machines; last the changes.
  processUpdates(vi, set, processDVSUpdates, "VmwareDistributedVirtualSwitch", true, modify);
  processUpdates(vi, set, processDCUpdates, "Datacenter", true, modify);
  processUpdates(vi, set, processCompResUpdates, "ComputeResource", true, modify);
  processUpdates(vi, set, processPortGroupUpdates, "DistributedVirtualPortgroup", true, modify);
  processUpdates(vi, set, processCompResUpdates, "ClusterComputeResource", true, modify);
  processUpdates(vi, set, processVMUpdates, "VirtualMachine", false, leave);
  processUpdates(vi, set, processHostUpdates, "HostSystem", false, leave);
  processUpdates(vi, set, processHostUpdates, "HostSystem", false, enter);
  processUpdates(vi, set, processVMUpdates, "VirtualMachine", false, enter);
  processUpdates(vi, set, processHostUpdates, "HostSystem", false, modify);
  processUpdates(vi, set, processVMUpdates, "VirtualMachine", false, modify);
  // Events come after the property changes of their set.
  if (!set->version.empty())
    processUpdates(vi, set, processPortEvents, "EventHistoryCollector", true, modify);
  vi->initialWaitForUpdateIs(true);
  sm->versionIs(set->version);
}

uint64_t objectUpdatesReceived() { return Vim25::objectUpdatesRead.load(std::memory_order_relaxed); }

}  // namespace Harbec
