// Replies of vCenter, as bytes off the wire, through the generated reader
// (into the context's arena) and on into the session's handlers, on an
// inventory that lives across inputs. The first byte picks the call whose
// reply the rest is: WaitForUpdates, FetchDVPorts, QueryNetworkHint, or
// the replies of a connect.
//
// Where the session is specified to end the process, the harness keeps the
// input from getting there, so that what lies behind is explored:
//  - a modify record for a host or machine that the inventory lacks, and an
//    enter record for a machine that it holds, are assertions; the kinds
//    are set to what the inventory holds, in the order of the rounds;
//  - a port whose NIC the inventory lacks is an assertion; such ports are
//    taken out of the reply.
// Anything else that ends the process is a finding.
#include <cstdint>
#include <set>
#include <sstream>
#include <string>

#include "Kel/Lock.h"
#include "Kel/Log.h"
#include "session/HarbecSmInternal.h"
#include "session/ports/PortOperations.h"
#include "session/updates/HostIds.h"

using namespace Harbec;

namespace {

struct Live {
  Live() {
    Kel::logSinkIs([](const Kel::LogHandle&, const Kel::String8&) {});
    soap_set_imode(sm->vim()->soap, SOAP_C_UTFSTRING);
  }
  // A fresh inventory now and then, so that it does not grow without end.
  void renew() {
    Kel::ActivityLockAnchor anchor;
    cleanUp(sm);
  }
  VI::Ptr vi = vIFactory("vi");
  HarbecSm::Ptr sm = harbecSmFactory(soapStatusFactory("soapStatus"), sessionStatusFactory("sessionStatus"),
                                     "UpdateThread", viConfigFactory("viConfig"), vi, false);
  unsigned inputs = 0;
  size_t read = 0;  // inputs whose replies the reader took
};

bool is(const ns2__ObjectUpdate* u, const char* type) { return u && u->obj && u->obj->type && *u->obj->type == type; }

// Sets the kinds of host and machine records to what the inventory will
// hold when each is taken, round by round as the update loop takes them.
void keepKindsConsistent(const VI::Ptr& vi, ns2__UpdateSet* set) {
  std::set<std::string> hosts, vms;
  for (auto i = vi->esxHostIterator(); i; ++i) hosts.insert(i.key().str());
  for (auto i = vi->vmIterator(); i; ++i) vms.insert(i.key().str());
  auto each = [&](auto fn) {
    for (ns2__PropertyFilterUpdate* f : set->filterSet)
      if (f && f->filter && f->filter->type && *f->filter->type == "PropertyFilter")
        for (ns2__ObjectUpdate* u : f->objectSet)
          if (u && u->obj) fn(u);
  };
  using Kind = ns2__ObjectUpdateKind;
  const Kind leave = ns2__ObjectUpdateKind__leave, enter = ns2__ObjectUpdateKind__enter,
             modify = ns2__ObjectUpdateKind__modify;
  // Leaves: machines, then hosts (a host takes its kernel machine along).
  each([&](ns2__ObjectUpdate* u) { if (is(u, "VirtualMachine") && u->kind == leave) vms.erase(u->obj->__item); });
  each([&](ns2__ObjectUpdate* u) {
    if (is(u, "HostSystem") && u->kind == leave) hosts.erase(u->obj->__item), vms.erase(u->obj->__item);
  });
  // A modify of what will not be there is taken as an enter; the enter
  // round comes first.
  each([&](ns2__ObjectUpdate* u) {
    if (is(u, "HostSystem") && u->kind == modify && !hosts.count(u->obj->__item)) u->kind = enter;
    if (is(u, "VirtualMachine") && u->kind == modify && !vms.count(u->obj->__item)) u->kind = enter;
  });
  each([&](ns2__ObjectUpdate* u) {
    if (is(u, "HostSystem") && u->kind == enter) hosts.insert(u->obj->__item), vms.insert(u->obj->__item);
  });
  each([&](ns2__ObjectUpdate* u) {
    if (!is(u, "VirtualMachine") || u->kind != enter) return;
    if (!vms.insert(u->obj->__item).second) u->kind = modify;
  });
}

// Takes out the ports whose NIC the inventory lacks.
void keepPortsWithNics(const VI::Ptr& vi, _ns2__FetchDVPortsResponse& reply) {
  std::vector<ns2__DistributedVirtualPort*> kept;
  for (ns2__DistributedVirtualPort* p : reply.returnval) {
    if (!p) continue;
    const auto* c = p->connectee;
    if (!c || !c->connectedEntity || !c->connectedEntity->type || !c->type) {
      kept.push_back(p);
      continue;
    }
    Kel::Name key(c->nicKey ? *c->nicKey : std::string());
    bool found = false;
    if (*c->type == "pnic") {
      EsxHost::Ptr h = vi->esxHost(c->connectedEntity->__item);
      found = h && h->pnic(key);
    } else if (*c->type == "vmVnic") {
      Vm::Ptr vm = vi->vm(c->connectedEntity->__item);
      found = vm && vm->vnic(key);
    } else {
      EsxHost::Ptr h = p->proxyHost ? vi->esxHost(p->proxyHost->__item) : EsxHost::Ptr();
      found = h && h->vm() && h->vm()->vnic(key);
    }
    if (found) kept.push_back(p);
  }
  reply.returnval = kept;
}

Live* live() {
  static Live* live = new Live();
  return live;
}

}  // namespace

extern "C" size_t harbecInputsRead() { return live()->read; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Live* live = ::live();
  if (size < 1) return 0;
  VimBinding* vim = live->sm->vim();
  std::istringstream in(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));
  vim->soap->is = &in;
  const VI::Ptr& vi = live->vi;
  switch (data[0] % 4) {
    case 0: {
      _ns2__WaitForUpdatesResponse reply;
      if (soap_recv___ns2__WaitForUpdates(vim->soap, reply) == SOAP_OK && reply.returnval) {
        ++live->read;
        {
          Kel::ActivityLockAnchor anchor;
          keepKindsConsistent(vi, reply.returnval);
        }
        processUpdateSet(live->sm, reply.returnval);
      }
      break;
    }
    case 1: {
      _ns2__FetchDVPortsResponse reply;
      if (soap_recv___ns2__FetchDVPorts(vim->soap, reply) == SOAP_OK) {
        ++live->read;
        {
          Kel::ActivityLockAnchor anchor;
          keepPortsWithNics(vi, reply);
        }
        updateCounters(live->sm, reply);
      }
      break;
    }
    case 2: {
      _ns2__QueryNetworkHintResponse reply;
      if (soap_recv___ns2__QueryNetworkHint(vim->soap, reply) == SOAP_OK) {
        ++live->read;
        std::string host;
        {
          Kel::ActivityLockAnchor anchor;
          if (auto i = vi->esxHostIterator()) host = i.key().str();
          vi->intfToEsxMapIs("Ethernet1");
        }
        updateNetworkInfo(vi, host, reply, "00:1c:73:aa:bb:cc");
      }
      break;
    }
    case 3: {
      _ns2__RetrieveServiceContentResponse content;
      _ns2__LoginResponse login;
      if (soap_recv___ns2__RetrieveServiceContent(vim->soap, content) == SOAP_OK) {
        ++live->read;
        if (content.returnval && content.returnval->rootFolder && content.returnval->rootFolder->type)
          copyMOR(&rootFolderRef, content.returnval->rootFolder);
      }
      soap_recv___ns2__Login(vim->soap, login);
      break;
    }
  }
  vim->soap->is = nullptr;
  vim->freeSoapMemory();
  if (++live->inputs % 5000 == 0) live->renew();
  return 0;
}
