#include "standins/Status.h"

#include "Kel/Lock.h"

namespace Harbec {

std::ostream& operator<<(std::ostream& os, const SessionState& s) {
  switch (s) {
    case sessionInit: return os << "sessionInit";
    case sessionDisconnected: return os << "sessionDisconnected";
    case sessionConnected: return os << "sessionConnected";
  }
  return os << "SessionState(" << static_cast<unsigned>(s) << ")";
}

void updateSessionStatus(SessionStatus::Ptr status, SessionState state) {
  Kel::ActivityLockAnchor anchor;
  status->sessionStateIs(state);
}

}  // namespace Harbec
