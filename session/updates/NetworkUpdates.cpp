// Property changes of the containers and networks: distributed switches,
// datacenters, compute resources and distributed port groups. They come
// ahead of all host and machine records of an update set.
#include "messaging/HarbecTrace.h"
#include "session/updates/PvlanMap.h"
#include "session/updates/UpdateHandlers.h"

namespace Harbec {

namespace {

// The text of a simple property value, a string or a reference; null for
// anything else.
const std::string* valueText(xsd__anyType* val) {
  if (auto* text = dynamic_cast<xsd__string*>(val)) return &text->__item;
  if (auto* ref = dynamic_cast<ns2__ManagedObjectReference*>(val)) return &ref->__item;
  return nullptr;
}

// The allowed VLANs of a trunk as "%d-%d" ranges, comma-separated. VLAN 0
// stands for 1; a range that is reversed or ends above 4094 is left out.
Kel::String8 trunkRanges(const ns2__VmwareDistributedVirtualSwitchTrunkVlanSpec* trunk) {
  std::string list;
  for (const ns2__NumericRange* range : trunk->vlanId) {
    if (!range) continue;
    HARBEC_TRACE(3, "start vlan " << range->start << " end vlan " << range->end);
    const int start = range->start == 0 ? 1 : range->start;
    const int end = range->end == 0 ? 1 : range->end;
    if (start > end || end > 4094) continue;
    if (!list.empty()) list += ",";
    list += Kel::format("%d-%d", start, end).str();
  }
  return list;
}

void updateVlanPolicy(const VI& vi, PortGroup::Ptr pg, const ns2__VmwareDistributedVirtualSwitchVlanSpec* vlan) {
  if (!vlan) {
    HARBEC_TRACE(7, "no vlan tagging");
    pg->trunkIs(false);
    pg->accessVlanIdIs("");
    pg->vlanPolicyIs("none");
  } else if (auto* trunk = dynamic_cast<const ns2__VmwareDistributedVirtualSwitchTrunkVlanSpec*>(vlan)) {
    // The access VLAN of an earlier policy stays as it was.
    pg->trunkIs(true);
    const Kel::String8 list = trunkRanges(trunk);
    pg->trunkAllowedVlansIs(list);
    pg->vlanPolicyIs("trunk");
    HARBEC_TRACE(7, "Trunk allowedvlans " << list);
  } else if (auto* id = dynamic_cast<const ns2__VmwareDistributedVirtualSwitchVlanIdSpec*>(vlan)) {
    // The trunk list of an earlier policy stays as it was. VLAN 0 is
    // untagged: no access VLAN text, and the raw number all the same.
    const Kel::String8 text = id->vlanId >= 1 && id->vlanId <= 4094 ? Kel::format("%d", id->vlanId)
                                                                    : Kel::String8();
    pg->trunkIs(false);
    pg->accessVlanIdIs(text);
    pg->vlanIdIs(static_cast<unsigned>(id->vlanId));
    pg->vlanPolicyIs("vlan");
    HARBEC_TRACE(7, "Access vlan id " << text);
  } else {
    // The VLAN attributes stay as they were; the policy's kind and PVLAN
    // ids are kept beside them.
    HARBEC_TRACE(0, "Not handling pvlan ");
    auto* pvlan = dynamic_cast<const ns2__VmwareDistributedVirtualSwitchPvlanSpec*>(vlan);
    const unsigned secondary = pvlan && pvlan->pvlanId > 0 ? static_cast<unsigned>(pvlan->pvlanId) : 0;
    pg->vlanPolicyIs(pvlan ? "pvlan" : "other");
    pg->pvlanIdIs(secondary);
    pg->pvlanPrimaryIdIs(secondary ? pvlanPrimaryOf(vi, pg->switchRef(), secondary) : 0);
  }
}

void updatePortGroupConfig(const VI& vi, PortGroup::Ptr pg, xsd__anyType* val) {
  auto* config = dynamic_cast<ns2__DVPortgroupConfigInfo*>(val);
  if (!config) return;
  pg->switchRefIs(config->distributedVirtualSwitch ? config->distributedVirtualSwitch->__item
                                                   : std::string());
  if (auto* setting = dynamic_cast<ns2__VMwareDVSPortSetting*>(config->defaultPortConfig))
    updateVlanPolicy(vi, pg, setting->vlan);
}

}  // namespace

void processDVSUpdates(ns2__ObjectUpdate* objUpdate, VI::Ptr vi) {
  HARBEC_TRACE(5, "void Harbec::processDVSUpdates(ns2__ObjectUpdate*, Harbec::VI::Ptr)");
  const Kel::Name key(objUpdate->obj->__item);
  if (objUpdate->kind == ns2__ObjectUpdateKind__leave) {
    // Made first, so that a leave for an unknown switch is no fault either.
    vi->dvsIs(key);
    vi->dvsDel(key);
    return;
  }
  if (!carriesChanges(objUpdate)) return;
  DVS::Ptr dvs = vi->dvsIs(key);
  for (ns2__PropertyChange* change : objUpdate->changeSet) {
    if (!change) continue;
    HARBEC_TRACE(7, "Processing changeset: " << " attribName: " << change->name);
    if (auto* map = dynamic_cast<ns2__ArrayOfVMwareDVSPvlanMapEntry*>(change->val)) {
      if (change->name == "config.pvlanConfig") updatePvlanMap(vi, key, dvs, *map);
      continue;
    }
    const std::string* text = valueText(change->val);
    if (!text) continue;
    if (change->name == "name") {
      dvs->dvsNameIs(*text);
    } else if (change->name == "uuid") {
      dvs->uuIdIs(*text);
    }
  }
  HARBEC_TRACE(6, "Updated DVS: " << key << " dvsName " << dvs->dvsName() << " uuId " << dvs->uuId());
}

void processDCUpdates(ns2__ObjectUpdate* objUpdate, VI::Ptr vi) {
  HARBEC_TRACE(5, "void Harbec::processDCUpdates(ns2__ObjectUpdate*, Harbec::VI::Ptr)");
  const Kel::String8 key(objUpdate->obj->__item);
  if (objUpdate->kind == ns2__ObjectUpdateKind__leave) {
    // hostFolderTodcRef is keyed by folder: the datacenter's own key finds
    // nothing there, and the entry of its folder stays.
    vi->dcRefTodcNameDel(key);
    vi->hostFolderTodcRefDel(key);
    return;
  }
  if (!carriesChanges(objUpdate)) return;
  for (ns2__PropertyChange* change : objUpdate->changeSet) {
    if (!change) continue;
    HARBEC_TRACE(7, "Processing changeset: " << " attribName: " << change->name);
    const std::string* text = valueText(change->val);
    if (!text) continue;
    if (change->name == "name") {
      vi->dcRefTodcNameIs(key, *text);
    } else if (change->name == "hostFolder") {
      vi->hostFolderTodcRefIs(*text, key);
    }
  }
  HARBEC_TRACE(6, "Updated DC Ref to Name");
  for (auto i = vi->dcRefTodcNameIterator(); i; ++i)
    HARBEC_TRACE(7, "DC Ref: " << i.key() << " Name: " << i.value());
}

void processCompResUpdates(ns2__ObjectUpdate* objUpdate, VI::Ptr vi) {
  HARBEC_TRACE(5, "void Harbec::processCompResUpdates(ns2__ObjectUpdate*, Harbec::VI::Ptr)");
  const Kel::String8 key(objUpdate->obj->__item);
  if (objUpdate->kind == ns2__ObjectUpdateKind__leave) {
    vi->compResToHostFolderDel(key);
    return;
  }
  if (!carriesChanges(objUpdate)) return;
  for (ns2__PropertyChange* change : objUpdate->changeSet) {
    if (!change || change->name != "parent") continue;
    if (const std::string* text = valueText(change->val)) vi->compResToHostFolderIs(key, *text);
  }
  HARBEC_TRACE(6, "Comp ref " << key);
}

void processPortGroupUpdates(ns2__ObjectUpdate* objUpdate, VI::Ptr vi) {
  HARBEC_TRACE(5, "void Harbec::processPortGroupUpdates(ns2__ObjectUpdate*, Harbec::VI::Ptr)");
  const Kel::Name key(objUpdate->obj->__item);
  if (objUpdate->kind == ns2__ObjectUpdateKind__leave) {
    vi->portGroupIs(key);
    vi->portGroupDel(key);
    return;
  }
  if (!carriesChanges(objUpdate)) return;
  PortGroup::Ptr pg = vi->portGroupIs(key);
  HARBEC_TRACE(6, "Portgroup:  " << key);
  for (ns2__PropertyChange* change : objUpdate->changeSet) {
    if (!change) continue;
    if (change->name == "name") {
      if (const std::string* text = valueText(change->val)) {
        HARBEC_TRACE(7, " pg name " << *text);
        pg->pgNameIs(*text);
      }
    } else if (change->name == "config") {
      updatePortGroupConfig(*vi, pg, change->val);
    }
  }
}

}  // namespace Harbec
