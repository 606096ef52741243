// XML elements of vShield Manager replies into free-standing records of the
// VsDataModel family. Tolerant by design: every element is optional, unknown
// ones are skipped, and a missing value reads as the empty string or zero.
#pragma once
#include <map>
#include <string>

#include <pugixml.hpp>

#include "standins/VsDataModel.h"

namespace Harbec {

// Reads the flat children of a record's element: "id" or "objectId" into
// name (the later one wins), "name" into displayName with its blanks
// collapsed, "description" as it stands, "revision" as a number. Any other
// child whose name is a key of extras gets its text stored there.
void extractCommonTypes(const pugi::xml_node& node, Kel::String8& name, Kel::String8& displayName,
                        Kel::String8& description, U32& revision,
                        std::map<std::string, std::string>& extras);

// From a virtualWire element.
VxlanSegment::Ptr unmarshalVxlanSegment(const pugi::xml_node& node);
// From a segmentRange element.
VniRange::Ptr unmarshalVniRange(const pugi::xml_node& node);
// From a vdnScope element.
NetworkScope::Ptr unmarshalNetworkScope(const pugi::xml_node& node);
// From a multicastRange element.
MulticastAddrRange::Ptr unmarshalMulticastAddrRange(const pugi::xml_node& node);
// From a clusterMapping element; the common elements come from its child cluster.
Cluster::Ptr unmarshalCluster(const pugi::xml_node& node);

// The way back to XML is not needed yet: each of these ends the process.
Kel::String8 marshal(const VxlanSegment::PtrConst& record);
Kel::String8 marshal(const VniRange::PtrConst& record);
Kel::String8 marshal(const NetworkScope::PtrConst& record);
Kel::String8 marshal(const MulticastAddrRange::Ptr& record);
Kel::String8 marshal(const Cluster::Ptr& record);

// displayName, description and revision of from into to, in this order.
void copy(VsDataModel::Ptr to, VsDataModel::PtrConst from);

}  // namespace Harbec
