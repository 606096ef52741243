// The five data handlers of the vShield session. Each reply holds the
// complete list of one kind of record; the matching collection of the VS
// tree is made equal to it with the least writing: what the reply lacks is
// deleted, what is new is added, what has aged (isOlderThan) is overwritten,
// and everything else is left alone, so that the host's reactors see only
// real changes.
//
// The activity lock is held for the whole deletion phase and then for each
// add and each update on its own; never while parsing. All writers of these
// collections run on the RestThread, so the search for an existing member
// needs no lock.
#include <map>

#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "vshield/VmwareVsSm.h"
#include "vshield/VmwareVsUtils.h"

namespace Harbec {

namespace {

// Makes `existing`'s set equal to `fresh`'s with the least writing. Entries
// present on both sides are marked false on the fresh record, which is a
// scratch copy that the tree never sees.
template <class Record, class Iterate, class Get, class Set, class Del>
void mergeSet(const Kel::Ptr<Record>& existing, const Kel::Ptr<Record>& fresh, Iterate iterate,
              Get get, Set set, Del del) {
  for (auto i = iterate(existing); i; ++i) {
    Kel::String8 key = i.key();
    if (get(fresh, key)) set(fresh, key, false);
    else del(existing, key);  // the iterator moves on to the next entry
  }
  for (auto i = iterate(fresh); i; ++i)
    if (i.value()) set(existing, i.key(), true);
}

struct VxlanSegmentKind {
  using Record = VxlanSegment;
  static constexpr const char* path = "dataPage";
  static constexpr const char* element = "virtualWire";
  static constexpr const char* deleting = "Deleting Vxlan segment: ";
  static constexpr const char* adding = "Added new Vxlan segment: ";
  static constexpr const char* updating = "Updating Vxlan segment: ";
  static constexpr const char* unchanged = "Vxlan segment ";

  static Record::Ptr unmarshal(const pugi::xml_node& n) { return unmarshalVxlanSegment(n); }
  static VS::VxlanSegmentIterator members(const VS::Ptr& vs) { return vs->vxlanSegmentIterator(); }
  static Record::Ptr member(const VS::Ptr& vs, const Kel::Name& k) { return vs->vxlanSegment(k); }
  static void remove(const VS::Ptr& vs, const Kel::Name& k) { vs->vxlanSegmentDel(k); }
  static Record::Ptr create(const VS::Ptr& vs, const Record::Ptr& r) {
    return vs->vxlanSegmentIs(r->name(), r->vsDataType());
  }
  static void own(const Record::Ptr& to, const Record::Ptr& from) {
    to->vniIs(from->vni());
    to->multicastIpAddrIs(from->multicastIpAddr());
    to->networkScopeIs(from->networkScope());
  }
  static void addSet(const Record::Ptr& to, const Record::Ptr& from) {
    for (auto i = from->dvsPortGroupIteratorConst(); i; ++i) to->dvsPortGroupIs(i.key(), true);
  }
  static void updateSet(const Record::Ptr& existing, const Record::Ptr& fresh) {
    mergeSet(
        existing, fresh, [](const Record::Ptr& r) { return r->dvsPortGroupIteratorConst(); },
        [](const Record::Ptr& r, const Kel::String8& k) { return r->dvsPortGroup(k); },
        [](const Record::Ptr& r, const Kel::String8& k, bool b) { r->dvsPortGroupIs(k, b); },
        [](const Record::Ptr& r, const Kel::String8& k) { r->dvsPortGroupDel(k); });
  }
};

struct NetworkScopeKind {
  using Record = NetworkScope;
  static constexpr const char* path = nullptr;
  static constexpr const char* element = "vdnScope";
  static constexpr const char* deleting = "Deleting network scope: ";
  static constexpr const char* adding = "Added new network scope: ";
  static constexpr const char* updating = "Updating network scope: ";
  static constexpr const char* unchanged = "Network scope ";

  static Record::Ptr unmarshal(const pugi::xml_node& n) { return unmarshalNetworkScope(n); }
  static VS::NetworkScopeIterator members(const VS::Ptr& vs) { return vs->networkScopeIterator(); }
  static Record::Ptr member(const VS::Ptr& vs, const Kel::Name& k) { return vs->networkScope(k); }
  static void remove(const VS::Ptr& vs, const Kel::Name& k) { vs->networkScopeDel(k); }
  static Record::Ptr create(const VS::Ptr& vs, const Record::Ptr& r) {
    return vs->networkScopeIs(r->name(), r->vsDataType());
  }
  static void own(const Record::Ptr&, const Record::Ptr&) {}
  static void addSet(const Record::Ptr& to, const Record::Ptr& from) {
    for (auto i = from->clusterIteratorConst(); i; ++i) to->clusterIs(i.key(), true);
  }
  static void updateSet(const Record::Ptr& existing, const Record::Ptr& fresh) {
    mergeSet(
        existing, fresh, [](const Record::Ptr& r) { return r->clusterIteratorConst(); },
        [](const Record::Ptr& r, const Kel::String8& k) { return r->cluster(k); },
        [](const Record::Ptr& r, const Kel::String8& k, bool b) { r->clusterIs(k, b); },
        [](const Record::Ptr& r, const Kel::String8& k) { r->clusterDel(k); });
  }
};

// The three kinds without a set: their attributes are simply overwritten.
template <class R>
struct NoSet {
  static void addSet(const Kel::Ptr<R>&, const Kel::Ptr<R>&) {}
  static void updateSet(const Kel::Ptr<R>&, const Kel::Ptr<R>&) {}
};

struct ClusterKind : NoSet<Cluster> {
  using Record = Cluster;
  static constexpr const char* path = nullptr;
  static constexpr const char* element = "clusterMapping";
  static constexpr const char* deleting = "Deleting cluster: ";
  static constexpr const char* adding = "Added new cluster: ";
  static constexpr const char* updating = "Updating cluster: ";
  static constexpr const char* unchanged = "Cluster ";

  static Record::Ptr unmarshal(const pugi::xml_node& n) { return unmarshalCluster(n); }
  static VS::ClusterIterator members(const VS::Ptr& vs) { return vs->clusterIterator(); }
  static Record::Ptr member(const VS::Ptr& vs, const Kel::Name& k) { return vs->cluster(k); }
  static void remove(const VS::Ptr& vs, const Kel::Name& k) { vs->clusterDel(k); }
  static Record::Ptr create(const VS::Ptr& vs, const Record::Ptr& r) {
    return vs->clusterIs(r->name(), r->vsDataType());
  }
  static void own(const Record::Ptr& to, const Record::Ptr& from) {
    to->datacenterIs(from->datacenter());
    to->dvsIs(from->dvs());
  }
};

// This one says "Adding new" where the others say "Added new".
struct MulticastAddrRangeKind : NoSet<MulticastAddrRange> {
  using Record = MulticastAddrRange;
  static constexpr const char* path = nullptr;
  static constexpr const char* element = "multicastRange";
  static constexpr const char* deleting = "Deleting multicast range: ";
  static constexpr const char* adding = "Adding new Mcast range: ";
  static constexpr const char* updating = "Updating Mcast range: ";
  static constexpr const char* unchanged = "Mcast range ";

  static Record::Ptr unmarshal(const pugi::xml_node& n) { return unmarshalMulticastAddrRange(n); }
  static VS::MulticastAddrRangeIterator members(const VS::Ptr& vs) {
    return vs->multicastAddrRangeIterator();
  }
  static Record::Ptr member(const VS::Ptr& vs, const Kel::Name& k) {
    return vs->multicastAddrRange(k);
  }
  static void remove(const VS::Ptr& vs, const Kel::Name& k) { vs->multicastAddrRangeDel(k); }
  static Record::Ptr create(const VS::Ptr& vs, const Record::Ptr& r) {
    return vs->multicastAddrRangeIs(r->name(), r->vsDataType());
  }
  static void own(const Record::Ptr& to, const Record::Ptr& from) {
    to->beginIs(from->begin());
    to->endIs(from->end());
  }
};

struct VniRangeKind : NoSet<VniRange> {
  using Record = VniRange;
  static constexpr const char* path = nullptr;
  static constexpr const char* element = "segmentRange";
  static constexpr const char* deleting = "Deleting VNI range: ";
  static constexpr const char* adding = "Added new VNI range: ";
  static constexpr const char* updating = "Updating VNI range: ";
  static constexpr const char* unchanged = "VNI range ";

  static Record::Ptr unmarshal(const pugi::xml_node& n) { return unmarshalVniRange(n); }
  static VS::VniRangeIterator members(const VS::Ptr& vs) { return vs->vniRangeIterator(); }
  static Record::Ptr member(const VS::Ptr& vs, const Kel::Name& k) { return vs->vniRange(k); }
  static void remove(const VS::Ptr& vs, const Kel::Name& k) { vs->vniRangeDel(k); }
  static Record::Ptr create(const VS::Ptr& vs, const Record::Ptr& r) {
    return vs->vniRangeIs(r->name(), r->vsDataType());
  }
  static void own(const Record::Ptr& to, const Record::Ptr& from) {
    to->beginIs(from->begin());
    to->endIs(from->end());
  }
};

template <class Kind>
void reconcile(const pugi::xml_document& doc, const VS::Ptr& vs) {
  using Record = typename Kind::Record;

  // Parse, without any lock. Of two elements with one key the later wins.
  std::map<Kel::Name, typename Record::Ptr> fresh;
  pugi::xml_node list = doc.document_element();
  if (Kind::path) list = list.child(Kind::path);
  for (pugi::xml_node n = list.child(Kind::element); n; n = n.next_sibling(Kind::element)) {
    typename Record::Ptr record = Kind::unmarshal(n);
    fresh[record->name()] = record;
  }

  {
    // What the reply lacks goes first, all under one lock.
    Kel::LockAnchor anchor(Kel::ActivityLockAnchor::lock());
    for (auto i = Kind::members(vs); i; ++i) {
      Kel::Name key = i.key();
      if (fresh.find(key) != fresh.end()) continue;
      HARBEC_TRACE(6, Kind::deleting << key);
      Kind::remove(vs, key);
    }
  }

  for (const auto& entry : fresh) {
    const typename Record::Ptr& record = entry.second;
    typename Record::Ptr existing = Kind::member(vs, entry.first);
    if (!existing) {
      HARBEC_TRACE(6, Kind::adding << record->name());
      Kel::LockAnchor anchor(Kel::ActivityLockAnchor::lock());
      typename Record::Ptr created = Kind::create(vs, record);
      created->displayNameIs(record->displayName());
      created->descriptionIs(record->description());
      created->revisionIs(record->revision());
      Kind::own(created, record);
      Kind::addSet(created, record);
    } else if (existing->isOlderThan(record)) {
      HARBEC_TRACE(6, Kind::updating << record->name());
      Kel::LockAnchor anchor(Kel::ActivityLockAnchor::lock());
      copy(existing, record);
      Kind::own(existing, record);
      Kind::updateSet(existing, record);
    } else {
      // Not older: the tree's values stand, even where the reply's differ.
      HARBEC_TRACE(6, Kind::unchanged << record->name() << " is up to date.");
    }
  }
}

}  // namespace

namespace {

// A reply without any record of its kind is an empty list all the same;
// what it held instead is worth a word when it is not the empty list.
template <class Kind>
std::string unexpectedShape(const pugi::xml_document& doc) {
  pugi::xml_node root = doc.document_element();
  pugi::xml_node list = Kind::path ? root.child(Kind::path) : root;
  if (list.child(Kind::element)) return "";
  if (Kind::path && !list)
    return std::string("no <") + Kind::path + "> in <" + root.name() + ">: taken as an empty list";
  pugi::xml_node other = list.find_child([](pugi::xml_node n) { return n.type() == pugi::node_element; });
  if (!other) return "";
  return std::string("no <") + Kind::element + "> but <" + other.name() + "> in <" + list.name() +
         ">: taken as an empty list";
}

}  // namespace

std::string unexpectedShape(const pugi::xml_document& doc, VsDataType type) {
  switch (type) {
    case vsVxlanSegment: return unexpectedShape<VxlanSegmentKind>(doc);
    case vsNetworkScope: return unexpectedShape<NetworkScopeKind>(doc);
    case vsCluster: return unexpectedShape<ClusterKind>(doc);
    case vsMulticastAddrRange: return unexpectedShape<MulticastAddrRangeKind>(doc);
    case vsVniRange: return unexpectedShape<VniRangeKind>(doc);
    default: return "";
  }
}

void VmwareVsSm::processVxlanSegmentRequest(const pugi::xml_document& doc) {
  HARBEC_TRACE_ENTRY();
  reconcile<VxlanSegmentKind>(doc, vs_);
}

void VmwareVsSm::processNetworkScopeRequest(const pugi::xml_document& doc) {
  HARBEC_TRACE_ENTRY();
  reconcile<NetworkScopeKind>(doc, vs_);
}

void VmwareVsSm::processClusterRequest(const pugi::xml_document& doc) {
  HARBEC_TRACE_ENTRY();
  reconcile<ClusterKind>(doc, vs_);
}

void VmwareVsSm::processMulticastAddressRangeRequest(const pugi::xml_document& doc) {
  HARBEC_TRACE_ENTRY();
  reconcile<MulticastAddrRangeKind>(doc, vs_);
}

void VmwareVsSm::processVniRangeRequest(const pugi::xml_document& doc) {
  HARBEC_TRACE_ENTRY();
  reconcile<VniRangeKind>(doc, vs_);
}

}  // namespace Harbec
