#include "session/updates/Deletion.h"

#include "messaging/HarbecTrace.h"
#include "session/updates/HostIds.h"

namespace Harbec {

namespace {
// Deletes, through the iterator, every member that is not kept.
template <class Iterator, class Del>
void sweep(Iterator i, bool onlyInactive, Del del) {
  for (; i; ++i) {
    if (onlyInactive && i.value()->active()) continue;
    del(i.key());
  }
}
}  // namespace

void delHost(EsxHost::Ptr host, VI::Ptr vi) {
  HARBEC_TRACE(5, "void Harbec::delHost(Harbec::EsxHost::Ptr, Harbec::VI::Ptr)"
                      << " host " << host->name() << " id " << host->hostId());
  Kel::Name key = host->name();
  freeHostId(host->hostId());
  vi->vmDel(key);
  vi->esxHostDel(key);
}

void delVM(Vm::Ptr vm, VI::Ptr vi) {
  HARBEC_TRACE(5, "void Harbec::delVM(Harbec::Vm::Ptr, Harbec::VI::Ptr)" << " vm " << vm->name());
  delVNics(vm, vi, false);
  vi->vmDel(vm->name());
}

void delVNics(Vm::Ptr vm, VI::Ptr, bool onlyInactive) {
  HARBEC_TRACE(5, "void Harbec::delVNics(Harbec::Vm::Ptr, Harbec::VI::Ptr, bool)" << " vm "
                                                                                  << vm->name());
  sweep(vm->vnicIterator(), onlyInactive, [&](const Kel::Name& key) {
    HARBEC_TRACE(3, "Delete vnic " << key);
    vm->vnicDel(key);
  });
}

void delNics(EsxHost::Ptr host, VI::Ptr, bool onlyInactive) {
  HARBEC_TRACE(5, "void Harbec::delNics(Harbec::EsxHost::Ptr, Harbec::VI::Ptr, bool)");
  sweep(host->pnicIterator(), onlyInactive,
                 [&](const Kel::Name& key) { host->pnicDel(key); });
  if (Vm::Ptr kernel = host->vm())
    sweep(kernel->vnicIterator(), onlyInactive,
              [&](const Kel::Name& key) { kernel->vnicDel(key); });
  sweep(host->portGroupIterator(), onlyInactive,
                 [&](const Kel::Name& key) { host->portGroupDel(key); });
}

}  // namespace Harbec
