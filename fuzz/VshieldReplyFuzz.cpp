// Replies of vShield Manager, as bytes off the wire, through the XML parse
// and the handler of their kind into a vShield tree that lives across
// inputs. The first byte picks the kind.
#include <cstdint>
#include <cstring>
#include <vector>

#include "Kel/Lock.h"
#include "Kel/Log.h"
#include "vshield/VmwareVsSm.h"

using namespace Harbec;

namespace {

struct Live {
  Live() { Kel::logSinkIs([](const Kel::LogHandle&, const Kel::String8&) {}); }
  VS::Ptr vs = vSFactory("vs");
  VmwareVsSm::Ptr sm = vmwareVsSmFactory(restStatusFactory("rest"), sessionStatusFactory("session"),
                                         vsConfigFactory("config"), vs, false);
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Live* live = new Live();
  if (size < 1) return 0;
  // The session parses the reply in place, as pugixml's default does.
  std::vector<char> buffer(data + 1, data + size);
  pugi::xml_document doc;
  if (doc.load_buffer_inplace(buffer.data(), buffer.size(), pugi::parse_default, pugi::encoding_auto).status !=
      pugi::status_ok)
    return 0;
  VmwareVsSm& sm = *live->sm;
  switch (data[0] % 6) {
    case 0: sm.processHeartBeatRequest(doc); break;
    case 1: sm.processVxlanSegmentRequest(doc); break;
    case 2: sm.processNetworkScopeRequest(doc); break;
    case 3: sm.processClusterRequest(doc); break;
    case 4: sm.processMulticastAddressRangeRequest(doc); break;
    case 5: sm.processVniRangeRequest(doc); break;
  }
  for (VsDataType type : {vsVxlanSegment, vsNetworkScope, vsCluster, vsMulticastAddrRange, vsVniRange})
    unexpectedShape(doc, type);
  return 0;
}
