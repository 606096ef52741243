#include "session/HarbecSmInternal.h"

#include "messaging/HarbecTrace.h"

namespace Harbec {

HarbecSm::HarbecSm(const SoapStatus::Ptr& soapStatus, const SessionStatus::Ptr& sessionStatus,
                   Kel::String8 instance, const ViConfig::PtrConst& viConfig, const VI::Ptr& vi,
                   bool exitOnConnectionError)
    : SoapRequestHandler(soapStatus, sessionStatus),
      instance_(instance),
      viConfig_(viConfig),
      vi_(vi),
      exitOnConnectionError_(exitOnConnectionError) {}

HarbecSm::~HarbecSm() { kelDoZombieReactors(true); }

HarbecSm::Ptr HarbecSm::HarbecSmIs(const SoapStatus::Ptr& soapStatus, const SessionStatus::Ptr& sessionStatus,
                                   Kel::String8 instance, const ViConfig::PtrConst& viConfig, const VI::Ptr& vi,
                                   bool exitOnConnectionError) {
  Ptr sm = Ptr::adopt(new HarbecSm(soapStatus, sessionStatus, instance, viConfig, vi, exitOnConnectionError));
  sm->handleInitialized();
  sm->hasNotificationActiveIs(true);
  return Kel::validPtr(sm);
}

HarbecSm::Ptr harbecSmFactory(const SoapStatus::Ptr& soapStatus, const SessionStatus::Ptr& sessionStatus,
                              Kel::String8 instance, const ViConfig::PtrConst& viConfig, const VI::Ptr& vi,
                              bool exitOnConnectionError) {
  return HarbecSm::HarbecSmIs(soapStatus, sessionStatus, instance, viConfig, vi, exitOnConnectionError);
}

void HarbecSm::handleInitialized() {
  HARBEC_TRACE_ENTRY();
  initSoapSess(this, vim_);
  updateSessionStatus(sessionStatus(), sessionInit);
  initializedIs(true);
}

void HarbecSm::hasNotificationActiveIs(bool b) {
  if (b != hasNotificationActive()) SoapRequestHandler::hasNotificationActiveIs(b);
}

void HarbecSm::kelDoZombieReactors(bool b) {
  if (b != kelMarkedForDeletion()) SoapRequestHandler::kelDoZombieReactors(b);
}

void HarbecSm::handleCheckForUpdatesRequest(const Kel::Ptr<const CheckForUpdatesRequest>& req) {
  if (!initialized_) return;
  HARBEC_TRACE_ENTRY();
  if (req->block()) {
    waitForUpdates(this);
  } else {
    checkForUpdates(this);
  }
}

// A liveness probe: a dead connection shows up as the exception of CurrentTime.
void HarbecSm::handleConnectionStatusRequest(const Kel::Ptr<const ConnectionStatusRequest>&) {
  if (!initialized_) return;
  HARBEC_TRACE_ENTRY();
  FreeSoapMem freeSoapMem(vim_);
  time_t t = 0;
  getCurrentTimeOnvCenter(this, t);
}

std::ostream& operator<<(std::ostream& os, const HarbecSm& sm) {
  return os << sm.fwkType() << "(" << sm.instance() << ")";
}

}  // namespace Harbec
