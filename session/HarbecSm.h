// The vCenter session: the handler behind one SoapThread. It logs in to
// vCenter over the vim25 SOAP API, keeps the inventory root up to date (the
// instance named "UpdateThread" alone), carries out the requests posted to
// its thread, and reports on SoapStatus and SessionStatus. Work starts only
// from requests; the configuration is read when a connect begins.
//
// This header is what the host agent sees; it needs none of the generated
// vim25 headers.
#pragma once
#include <signal.h>

#include <cstdint>
#include <string>

#include "inventory/VI.h"
#include "messaging/WebServiceThread.h"
#include "standins/Status.h"

namespace Harbec {

// The client binding over the generated vim25 stubs: one soap context.
class VimBinding;

class HarbecSm : public SoapRequestHandler {
 public:
  using Ptr = Kel::Ptr<HarbecSm>;
  using PtrConst = Kel::Ptr<const HarbecSm>;

  static Kel::String8 _fwkType() { return "Harbec::HarbecSm"; }
  Kel::String8 fwkType() const override { return _fwkType(); }

  // The one entry of the session, on its SoapThread.
  void processSoapRequest(const Kel::Ptr<const SoapRequest>& request) override;

  const Kel::String8& instance() const { return instance_; }
  const ViConfig::PtrConst& viConfig() const { return viConfig_; }
  const VI::Ptr& vi() const { return vi_; }
  bool exitOnConnectionError() const { return exitOnConnectionError_; }

  void handleCounterUpdateRequest(const Kel::Ptr<const CounterUpdateRequest>& req);
  void handleConnectRequest(const Kel::Ptr<const ConnectRequest>& req);
  void handleBlockPortRequest(const Kel::Ptr<const BlockPortRequest>& req);
  void handleCheckForUpdatesRequest(const Kel::Ptr<const CheckForUpdatesRequest>& req);
  void handleUpdateHostNwInfoRequest(const Kel::Ptr<const UpdateHostNwInfoRequest>& req);
  void handleFetchDvPortRequest(const Kel::Ptr<const FetchDvPortRequest>& req);
  void handleRefreshDvPortRequest(const Kel::Ptr<const RefreshDvPortRequest>& req);
  void handleConnectionStatusRequest(const Kel::Ptr<const ConnectionStatusRequest>& req);
  void handleLogMsgRequest(const Kel::Ptr<const LogMsgRequest>& req);
  void handleFetchDvPortRequestWithCallback(const Kel::Ptr<const FetchDvPortRequest>& req);
  void handleRefreshDvPortRequestWithCallback(const Kel::Ptr<const RefreshDvPortRequest>& req);

  // The version of the last update set taken in; empty asks for everything.
  const Kel::String8& version() const { return version_; }
  void versionIs(const Kel::String8& v) {
    if (version_ != v) version_ = v;
  }
  // Not counted: the binding lives as long as the process.
  VimBinding* vim() const { return vim_; }
  void vimIs(VimBinding* v) { vim_ = v; }
  bool initialized() const { return initialized_; }
  void initializedIs(bool b) { initialized_ = b; }

  // Creates the binding and enters sessionInit.
  void handleInitialized();
  void hasNotificationActiveIs(bool b) override;
  void kelDoZombieReactors(bool b) override;

  // Allocates the session, initialises it and returns it, notifying.
  static Ptr HarbecSmIs(const SoapStatus::Ptr& soapStatus, const SessionStatus::Ptr& sessionStatus,
                        Kel::String8 instance, const ViConfig::PtrConst& viConfig, const VI::Ptr& vi,
                        bool exitOnConnectionError);

  // Drops the references; the binding stays.
  ~HarbecSm() override;

 protected:
  HarbecSm(const SoapStatus::Ptr& soapStatus, const SessionStatus::Ptr& sessionStatus, Kel::String8 instance,
           const ViConfig::PtrConst& viConfig, const VI::Ptr& vi, bool exitOnConnectionError);

 private:
  Kel::String8 instance_;
  ViConfig::PtrConst viConfig_;
  VI::Ptr vi_;
  bool exitOnConnectionError_ = false;
  Kel::String8 version_;
  VimBinding* vim_ = nullptr;
  bool initialized_ = false;
};

// One session for one SoapThread; "UpdateThread" names the owner of the
// inventory. Hand the result to soapThreadFactory.
HarbecSm::Ptr harbecSmFactory(const SoapStatus::Ptr& soapStatus, const SessionStatus::Ptr& sessionStatus,
                              Kel::String8 instance, const ViConfig::PtrConst& viConfig, const VI::Ptr& vi,
                              bool exitOnConnectionError);

// Object updates read from vCenter so far by this process, counted while
// their reply is still being read: the progress of a long first sync.
uint64_t objectUpdatesReceived();

// Ends the server session of the last login; the gSOAP status, 0 on
// success. Nothing in the session calls it: sessions are left to expire.
int logout(VimBinding* vim);

// Defines a (disabled) alarm on an entity of vCenter, raised by the event
// "KestinEvent" on hosts. Raises SoapException on failure.
void createAlarm(Kel::Ptr<HarbecSm> sm, VimBinding* vim, std::string entity, std::string entityType,
                 std::string description);

std::ostream& operator<<(std::ostream& os, const HarbecSm& sm);

using U32 = uint32_t;

// The SIGPIPE action to be in force while no client socket is open, kept by
// the agent, which ignores SIGPIPE while it answers a client.
extern struct sigaction currentAction;

// Closes the socket of a client whose answer was delivered from
// VI::responsesWithCallback, and puts currentAction back for SIGPIPE.
void closeSocket(U32 socket);

}  // namespace Harbec
