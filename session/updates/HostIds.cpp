#include "session/updates/HostIds.h"

#include <cstring>

#include "messaging/HarbecTrace.h"

namespace Harbec {

namespace {
constexpr unsigned kHostIds = 4096;
// One byte more than the ids: the id 4096 handed out at exhaustion may be
// freed, and its byte must stay inside the table.
unsigned char hostIds[kHostIds + 1];
}  // namespace

unsigned int getHostId() {
  for (unsigned id = 1; id < kHostIds; ++id) {
    if (hostIds[id] == 0) {
      hostIds[id] = 1;
      HARBEC_TRACE(5, "Hostid " << id);
      return id;
    }
  }
  return kHostIds;
}

void freeHostId(unsigned int id) {
  HARBEC_TRACE(8, "Free Hostid " << id);
  if (id <= kHostIds) hostIds[id] = 0;
}

void freeAllHostIds() { std::memset(hostIds, 0, kHostIds); }

}  // namespace Harbec
