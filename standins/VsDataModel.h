// Records of the vShield data model and the root of their tree. Each record
// is keyed by the object id that vShield Manager gives it and carries the
// server's revision of the object; isOlderThan, asked of the record in the
// tree with a fresh one from a reply, decides whether the tree's copy must
// be replaced.
#pragma once
#include <cstdint>

#include "Kel/Record.h"
#include "standins/IpAddr.h"
#include "standins/VsDataType.h"

namespace Harbec {

using U32 = uint32_t;

// The record's key is the entity's own name.
#define HARBEC_VS_DATA_MODEL_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  CTOR(vsDataType, VsDataType, VsDataType)                                    \
  SCALAR(displayName, DisplayName, Kel::String8, Kel::String8())              \
  SCALAR(description, Description, Kel::String8, Kel::String8())              \
  SCALAR(revision, Revision, U32, 0)

class VsDataModel : public Kel::Entity {
  KEL_RECORD(Harbec, VsDataModel, Kel::Entity, HARBEC_VS_DATA_MODEL_ATTRIBUTES)
 public:
  // A name already in use must come with the same type tag.
  void kelCheckReinstantiation(VsDataType vsDataType) const {
    if (vsDataType != vsDataType_) kelReinstantiationRefused("_vsDataType", vsDataType, vsDataType_);
  }

 protected:
  VsDataModel(const Kel::Name& n, VsDataType vsDataType) : Kel::Entity(n) { vsDataType_ = vsDataType; }
  bool revisionIsOlderThan(const VsDataModel& fresh) const { return revision_ < fresh.revision_; }
};

// Declares a record of the family: its constructor, its factory and
// isOlderThan, which is true exactly when the fresh revision is higher.
#define HARBEC_VS_RECORD(T, factory, LIST)                                              \
  class T : public VsDataModel {                                                        \
    KEL_RECORD(Harbec, T, VsDataModel, LIST)                                            \
   public:                                                                              \
    bool isOlderThan(const PtrConst& fresh) const { return revisionIsOlderThan(*fresh); } \
                                                                                        \
   protected:                                                                           \
    T(const Kel::Name& n, VsDataType vsDataType) : VsDataModel(n, vsDataType) {}        \
  };                                                                                    \
  KEL_FACTORY(T, factory)

// dvsPortGroup is a set: an entry with false is present but not a member.
#define HARBEC_VXLAN_SEGMENT_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE)         \
  SCALAR(vni, Vni, U32, 0)                                                            \
  SCALAR(multicastIpAddr, MulticastIpAddr, Brindle::IpAddr, Brindle::IpAddr())        \
  SCALAR(networkScope, NetworkScope, Kel::String8, Kel::String8())                    \
  VALUES(dvsPortGroup, DvsPortGroup, Kel::String8, bool, Kel::HashMap)
HARBEC_VS_RECORD(VxlanSegment, vxlanSegmentFactory, HARBEC_VXLAN_SEGMENT_ATTRIBUTES)

#define HARBEC_VNI_RANGE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(begin, Begin, U32, 0)                                            \
  SCALAR(end, End, U32, 0)
HARBEC_VS_RECORD(VniRange, vniRangeFactory, HARBEC_VNI_RANGE_ATTRIBUTES)

// cluster is a set, like VxlanSegment::dvsPortGroup.
#define HARBEC_NETWORK_SCOPE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  VALUES(cluster, Cluster, Kel::String8, bool, Kel::HashMap)
HARBEC_VS_RECORD(NetworkScope, networkScopeFactory, HARBEC_NETWORK_SCOPE_ATTRIBUTES)

#define HARBEC_MULTICAST_ADDR_RANGE_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(begin, Begin, Brindle::IpAddr, Brindle::IpAddr())                          \
  SCALAR(end, End, Brindle::IpAddr, Brindle::IpAddr())
HARBEC_VS_RECORD(MulticastAddrRange, multicastAddrRangeFactory,
                 HARBEC_MULTICAST_ADDR_RANGE_ATTRIBUTES)

#define HARBEC_CLUSTER_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(datacenter, Datacenter, Kel::String8, Kel::String8())          \
  SCALAR(dvs, Dvs, Kel::String8, Kel::String8())
HARBEC_VS_RECORD(Cluster, clusterFactory, HARBEC_CLUSTER_ATTRIBUTES)

// The root of the vShield tree: one collection per record kind, each member
// made with xIs(name, vsDataType).
#define HARBEC_VS_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE)  \
  ENTITIES(vxlanSegment, VxlanSegment, VxlanSegment)                \
  ENTITIES(vniRange, VniRange, VniRange)                            \
  ENTITIES(networkScope, NetworkScope, NetworkScope)                \
  ENTITIES(multicastAddrRange, MulticastAddrRange, MulticastAddrRange) \
  ENTITIES(cluster, Cluster, Cluster)

class VS : public Kel::Entity {
  KEL_RECORD(Harbec, VS, Kel::Entity, HARBEC_VS_ATTRIBUTES)
 protected:
  explicit VS(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(VS, vSFactory)

}  // namespace Harbec
