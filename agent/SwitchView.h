// The view a switch engineer asks for, computed from a Snapshot: for each
// switch interface the host NIC behind it and every machine on that host
// with a NIC on the NIC's virtual switch, the VLANs the interface must
// carry for them, and what no interface reaches. Pure functions: the
// renderings are the agent's output, text for people and JSON for scripts.
#pragma once
#include <map>
#include <string>
#include <vector>

#include "agent/Snapshot.h"
#include "agent/VlanSet.h"

namespace HarbecAgent {

struct AttachedVm {
  const VmInfo* vm;
  const VnicInfo* nic;
};

struct InterfaceView {
  const InterfaceInfo* intf;
  const HostInfo* host;  // null when no host was found behind it
  const PnicInfo* pnic;  // null when the host has no such NIC
  std::vector<AttachedVm> vms;
  VlanSet vlans;
  unsigned unknownVlanNics = 0;  // attached NICs whose VLANs are not known
  // Where the interface's configuration is known: what it carries, what of
  // `vlans` it lacks (machines behind it cannot reach their network), and
  // what it carries that nobody behind it needs.
  VlanSet configured, missing, unneeded;
};

// Pointers into the Snapshot it was made from.
struct SwitchView {
  std::vector<InterfaceView> interfaces;
  std::vector<const HostInfo*> unreachedHosts;
  std::vector<const VmInfo*> unreachedVms;
  std::map<std::string, std::vector<std::string>> interfacesOf;  // host or VM ref -> interface names
};

SwitchView switchView(const Snapshot& s);

// "-", "to esx-2", "failed (esx-2)".
std::string migrationText(const VmInfo& vm, const Snapshot& s);
// A host's name, else its reference.
std::string hostLabel(const std::string& ref, const Snapshot& s);

std::string renderText(const Snapshot& s);
// One document: arrays "interfaces", "hosts", "vms", and "vshield" when a
// vShield Manager is configured.
std::string renderJson(const Snapshot& s, bool indent);

}  // namespace HarbecAgent
