// Taking hosts, machines and NICs out of the inventory. These run under the
// activity lock of their callers and take none themselves.
#pragma once
#include "inventory/VI.h"

namespace Harbec {

// Removes a host and its kernel machine, and frees its id.
void delHost(EsxHost::Ptr host, VI::Ptr vi);
// Removes a machine and its NICs.
void delVM(Vm::Ptr vm, VI::Ptr vi);
// Sweeps a host's NICs, kernel NICs and port groups; with onlyInactive,
// those the last configuration named (active) stay.
void delNics(EsxHost::Ptr host, VI::Ptr vi, bool onlyInactive);
// Sweeps a machine's NICs the same way.
void delVNics(Vm::Ptr vm, VI::Ptr vi, bool onlyInactive);

}  // namespace Harbec
