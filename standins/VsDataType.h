// Which kind of vShield record a REST request fetches.
#pragma once
#include "Kel/Enum.h"

namespace Harbec {

#define HARBEC_VS_DATA_TYPE_VALUES(V) \
  V(unknownVsDataType, 0)             \
  V(vsHeartBeat, 1)                   \
  V(vsCluster, 2)                     \
  V(vsMulticastAddrRange, 3)          \
  V(vsNetworkScope, 4)                \
  V(vsVniRange, 5)                    \
  V(vsVxlanSegment, 6)                \
  V(vsBatch, 7)
KEL_ENUM(VsDataType, "VsDataType", "VsDataType", HARBEC_VS_DATA_TYPE_VALUES)

}  // namespace Harbec
