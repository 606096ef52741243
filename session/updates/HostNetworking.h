// Pieces of the host record handling shared between its files: the PCI
// tables of one record, the network reconciliation of a host, and the
// address of a VMkernel NIC.
#pragma once
#include <map>
#include <string>

#include "inventory/VI.h"
#include "soapH.h"

namespace Harbec {

// What the "hardware" change of a record tells of the PCI devices, by PCI
// id. Lives for one record only: a NIC learns its vendor and model only
// from a "hardware" change in the same record as its configuration.
struct PciTables {
  std::map<std::string, std::string> pciIdToVendor;
  std::map<std::string, std::string> pciIdToDeviceName;
};

// Applies a host's complete network configuration: marks its NICs, kernel
// NICs and port groups inactive and revisits those the configuration names.
// The caller sweeps what stayed inactive.
void processHostNetwork(VI::Ptr vi, EsxHost::Ptr host, ns2__HostNetworkInfo* networkInfo,
                        const PciTables& pci);

// Sets the address of a VMkernel NIC from its IP configuration, when that
// holds both an address and a mask; otherwise the NIC keeps its address.
void hostVnicAddressIs(Vnic::Ptr vnic, const ns2__HostIpConfig* ip);
// A VMkernel NIC's spec; one with nothing in it where vCenter left it out.
const ns2__HostVirtualNicSpec* specOf(const ns2__HostVirtualNic* hostVnic);

}  // namespace Harbec
