#include "vshield/VmwareVsUtils.h"

#include <cstdlib>
#include <cstring>

#include "Kel/Assert.h"
#include "messaging/HarbecTrace.h"
#include "messaging/TextUtils.h"
#include "standins/IpAddr.h"

namespace Harbec {

namespace {

// strtol's reading of a text, cut to 32 bits: leading digits or 0, the
// limit of a long beyond its range, a negative number as its bit pattern.
U32 toU32(const char* text) { return static_cast<U32>(std::strtol(text, nullptr, 10)); }

Brindle::IpAddr toIpAddr(const std::string& text) {
  Brindle::IpAddr addr;
  addr.stringValueIs(Kel::String8(text));
  return addr;
}

// The common elements of a record's element.
struct Common {
  Kel::String8 name;
  Kel::String8 displayName;
  Kel::String8 description;
  U32 revision = 0;
};

Common readCommon(const pugi::xml_node& node, std::map<std::string, std::string>& extras) {
  Common c;
  extractCommonTypes(node, c.name, c.displayName, c.description, c.revision, extras);
  return c;
}

void setCommon(const VsDataModel::Ptr& record, const Common& c) {
  record->displayNameIs(c.displayName);
  record->descriptionIs(c.description);
  record->revisionIs(c.revision);
}

}  // namespace

void extractCommonTypes(const pugi::xml_node& node, Kel::String8& name, Kel::String8& displayName,
                        Kel::String8& description, U32& revision,
                        std::map<std::string, std::string>& extras) {
  HARBEC_TRACE_ENTRY();
  name = "";
  displayName = "";
  description = "";
  revision = 0;
  for (pugi::xml_node child : node.children()) {
    const char* tag = child.name();
    if (std::strcmp(tag, "id") == 0 || std::strcmp(tag, "objectId") == 0) {
      name = child.child_value();
      HARBEC_TRACE(6, "name: " << name);
    } else if (std::strcmp(tag, "name") == 0) {
      displayName = stripExtraWhiteSpace(child.child_value());
      HARBEC_TRACE(6, "displayName: " << displayName);
    } else if (std::strcmp(tag, "description") == 0) {
      description = child.child_value();
      HARBEC_TRACE(6, "desc: " << description);
    } else if (std::strcmp(tag, "revision") == 0) {
      revision = toU32(child.child_value());
      HARBEC_TRACE(6, "revision: " << revision);
    } else if (!extras.empty()) {
      auto extra = extras.find(tag);
      if (extra != extras.end()) extra->second = child.child_value();
    }
  }
}

VxlanSegment::Ptr unmarshalVxlanSegment(const pugi::xml_node& node) {
  HARBEC_TRACE_ENTRY();
  std::map<std::string, std::string> extras{{"vdnId", ""}, {"multicastAddr", ""}, {"vdnScopeId", ""}};
  Common common = readCommon(node, extras);
  VxlanSegment::Ptr record = vxlanSegmentFactory(Kel::Name(common.name), vsVxlanSegment);
  setCommon(record, common);
  record->vniIs(toU32(extras["vdnId"].c_str()));
  record->multicastIpAddrIs(toIpAddr(extras["multicastAddr"]));
  record->networkScopeIs(Kel::String8(extras["vdnScopeId"]));
  for (pugi::xml_node context = node.child("vdsContextWithBacking"); context;
       context = context.next_sibling("vdsContextWithBacking")) {
    Kel::String8 portGroup = context.child_value("backingValue");
    HARBEC_TRACE(6, "dvsPortGroupId: " << portGroup);
    record->dvsPortGroupIs(portGroup, true);
  }
  return record;
}

VniRange::Ptr unmarshalVniRange(const pugi::xml_node& node) {
  HARBEC_TRACE_ENTRY();
  std::map<std::string, std::string> extras{{"begin", ""}, {"end", ""}};
  Common common = readCommon(node, extras);
  VniRange::Ptr record = vniRangeFactory(Kel::Name(common.name), vsVniRange);
  setCommon(record, common);
  record->beginIs(toU32(extras["begin"].c_str()));
  record->endIs(toU32(extras["end"].c_str()));
  return record;
}

NetworkScope::Ptr unmarshalNetworkScope(const pugi::xml_node& node) {
  HARBEC_TRACE_ENTRY();
  // No extras: unknown children aren't even looked up.
  std::map<std::string, std::string> extras;
  Common common = readCommon(node, extras);
  NetworkScope::Ptr record = networkScopeFactory(Kel::Name(common.name), vsNetworkScope);
  setCommon(record, common);
  for (pugi::xml_node cluster = node.child("clusters").child("cluster"); cluster;
       cluster = cluster.next_sibling("cluster")) {
    Kel::String8 clusterId = cluster.child("cluster").child_value("objectId");
    HARBEC_TRACE(6, "clusterId: " << clusterId);
    record->clusterIs(clusterId, true);
  }
  return record;
}

MulticastAddrRange::Ptr unmarshalMulticastAddrRange(const pugi::xml_node& node) {
  HARBEC_TRACE_ENTRY();
  std::map<std::string, std::string> extras{{"begin", ""}, {"end", ""}};
  Common common = readCommon(node, extras);
  MulticastAddrRange::Ptr record =
      multicastAddrRangeFactory(Kel::Name(common.name), vsMulticastAddrRange);
  setCommon(record, common);
  Brindle::IpAddr begin = toIpAddr(extras["begin"]);
  Brindle::IpAddr end = toIpAddr(extras["end"]);
  record->beginIs(begin);
  record->endIs(end);
  return record;
}

Cluster::Ptr unmarshalCluster(const pugi::xml_node& node) {
  HARBEC_TRACE_ENTRY();
  std::map<std::string, std::string> extras;
  pugi::xml_node cluster = node.child("cluster");
  Common common = readCommon(cluster, extras);
  Cluster::Ptr record = clusterFactory(Kel::Name(common.name), vsCluster);
  setCommon(record, common);
  Kel::String8 datacenter = cluster.child("scope").child_value("id");
  HARBEC_TRACE(6, "datacenterId: " << datacenter);
  record->datacenterIs(datacenter);
  Kel::String8 dvs = node.child("clusterMappingSpec").child("switch").child_value("objectId");
  HARBEC_TRACE(6, "dvsId: " << dvs);
  record->dvsIs(dvs);
  return record;
}

Kel::String8 marshal(const VxlanSegment::PtrConst&) {
  HARBEC_TRACE_ENTRY();
  KEL_ASSERT(false && "Implement as needed");
  return Kel::String8();
}

Kel::String8 marshal(const VniRange::PtrConst&) {
  HARBEC_TRACE_ENTRY();
  KEL_ASSERT(false && "Implement as needed");
  return Kel::String8();
}

Kel::String8 marshal(const NetworkScope::PtrConst&) {
  HARBEC_TRACE_ENTRY();
  KEL_ASSERT(false && "Implement as needed");
  return Kel::String8();
}

Kel::String8 marshal(const MulticastAddrRange::Ptr&) {
  HARBEC_TRACE_ENTRY();
  KEL_ASSERT(false && "Implement as needed");
  return Kel::String8();
}

Kel::String8 marshal(const Cluster::Ptr&) {
  HARBEC_TRACE_ENTRY();
  KEL_ASSERT(false && "Implement as needed");
  return Kel::String8();
}

void copy(VsDataModel::Ptr to, VsDataModel::PtrConst from) {
  HARBEC_TRACE_ENTRY();
  to->displayNameIs(from->displayName());
  to->descriptionIs(from->description());
  to->revisionIs(from->revision());
}

}  // namespace Harbec
