// A distributed switch's PVLAN map, kept beside the switch so that a port
// group with a PVLAN policy can name its primary VLAN as well as the
// secondary one its policy gives.
#pragma once
#include "inventory/VI.h"
#include "soapH.h"

namespace Harbec {

// Replaces the map of `dvs` (keyed `dvsKey` in the VI) with the entries of
// a "config.pvlanConfig" value, and brings the primary VLAN of the switch's
// PVLAN port groups up to date.
void updatePvlanMap(VI::Ptr vi, const Kel::Name& dvsKey, DVS::Ptr dvs, const ns2__ArrayOfVMwareDVSPvlanMapEntry& map);

// The primary VLAN of `secondary` on the switch `switchRef`; 0 while unknown.
unsigned pvlanPrimaryOf(const VI& vi, const Kel::String8& switchRef, unsigned secondary);

}  // namespace Harbec
