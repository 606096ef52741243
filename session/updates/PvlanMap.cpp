#include "session/updates/PvlanMap.h"

namespace Harbec {

void updatePvlanMap(VI::Ptr vi, const Kel::Name& dvsKey, DVS::Ptr dvs, const ns2__ArrayOfVMwareDVSPvlanMapEntry& map) {
  dvs->pvlanPrimaryDelAll();
  for (const ns2__VMwareDVSPvlanMapEntry* entry : map.VMwareDVSPvlanMapEntry)
    if (entry && entry->primaryVlanId > 0 && entry->secondaryVlanId > 0)
      dvs->pvlanPrimaryIs(static_cast<unsigned>(entry->secondaryVlanId), static_cast<unsigned>(entry->primaryVlanId));
  for (auto i = vi->portGroupIterator(); i; ++i) {
    PortGroup::Ptr pg = i.value();
    if (pg->vlanPolicy() == "pvlan" && pg->switchRef() == dvsKey)
      pg->pvlanPrimaryIdIs(dvs->pvlanPrimary(pg->pvlanId()));
  }
}

unsigned pvlanPrimaryOf(const VI& vi, const Kel::String8& switchRef, unsigned secondary) {
  DVS::Ptr dvs = vi.dvs(Kel::Name(switchRef));
  return dvs ? dvs->pvlanPrimary(secondary) : 0;
}

}  // namespace Harbec
