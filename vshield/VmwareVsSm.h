// The vShield session: the handler behind the RestThread. Each request
// becomes one HTTP GET against vShield Manager; the XML reply is parsed and
// handed to the handler of the request's data type, which brings the VS tree
// up to date. Outcomes go to RestStatus, SessionStatus and the operator log;
// nothing is thrown on a network or server failure.
#pragma once
#include <pugixml.hpp>

#include "messaging/WebServiceThread.h"
#include "standins/Status.h"
#include "standins/VsDataModel.h"

namespace Harbec {

class MemoryBuffer;

class VmwareVsSm : public RestRequestHandler {
 public:
  using Ptr = Kel::Ptr<VmwareVsSm>;
  using PtrConst = Kel::Ptr<const VmwareVsSm>;

  static Kel::String8 _fwkType() { return "Harbec::VmwareVsSm"; }
  Kel::String8 fwkType() const override { return _fwkType(); }

  // One request, or each member of a batch in turn; runs on the RestThread.
  void processRestRequest(const RestRequest::PtrConst& restRequest) override;

  // Handlers of a parsed reply, by data type.
  void processHeartBeatRequest(const pugi::xml_document& doc);
  void processClusterRequest(const pugi::xml_document& doc);
  void processMulticastAddressRangeRequest(const pugi::xml_document& doc);
  void processNetworkScopeRequest(const pugi::xml_document& doc);
  void processVniRangeRequest(const pugi::xml_document& doc);
  void processVxlanSegmentRequest(const pugi::xml_document& doc);

  const VsConfig::PtrConst& vsConfig() const { return vsConfig_; }
  const VS::Ptr& vs() const { return vs_; }
  // Kept for whoever reads it; the session itself never acts on it.
  bool exitOnConnectionError() const { return exitOnConnectionError_; }
  bool initialized() const { return initialized_; }

  void hasNotificationActiveIs(bool b) override;
  void kelDoZombieReactors(bool b) override;

  ~VmwareVsSm() override;

 protected:
  VmwareVsSm(const RestStatus::Ptr& restStatus, const SessionStatus::Ptr& sessionStatus,
             const VsConfig::PtrConst& vsConfig, const VS::Ptr& vs, bool exitOnConnectionError);

  // The constructor's last step: the session starts in sessionInit.
  void handleInitialized();
  void initializedIs(bool b) { initialized_ = b; }

 private:
  friend Ptr vmwareVsSmFactory(const RestStatus::Ptr&, const SessionStatus::Ptr&,
                               const VsConfig::PtrConst&, const VS::Ptr&, bool);
  // The only request type this session serves.
  static RestRequestType httpGET() { return Harbec::httpGET; }
  // GETs `endpoint` and parses the reply into `doc`, which points into
  // `buffer`; a failure is counted, logged and false.
  bool fetchDocument(const Kel::String8& endpoint, MemoryBuffer& buffer, pugi::xml_document& doc);
  // The pages after the first of a paged list of virtual wires, appended to
  // the first page's; false when one of them fails. Each page is counted
  // once the next is asked for; `endpoint` ends as the last one's, to be
  // counted when the list has been handled.
  bool fetchRemainingPages(const RestRequest& request, pugi::xml_document& doc, Kel::String8& endpoint);

  VsConfig::PtrConst vsConfig_;
  VS::Ptr vs_;
  bool exitOnConnectionError_ = false;
  bool initialized_ = false;
};

VmwareVsSm::Ptr vmwareVsSmFactory(const RestStatus::Ptr& restStatus,
                                  const SessionStatus::Ptr& sessionStatus,
                                  const VsConfig::PtrConst& vsConfig, const VS::Ptr& vs,
                                  bool exitOnConnectionError);

// Writes the session state; logs VMWAREVS_CONNECTION_SUCCESSFUL on each
// entry into sessionConnected.
void updateSessionStatusAndLog(SessionStatus::Ptr status, SessionState newState);
// Marks an exchange as sent.
void updateRestStatusSent(RestStatus::Ptr status, const Kel::String8& endpoint);
// Counts the outcome of the exchange last sent; 200 is a success.
void updateRestStatusResult(RestStatus::Ptr status, const Kel::String8& endpoint, long httpCode);
// Beside the counts: what went wrong, or looked wrong in a reply that was
// taken, on one line for an operator; "" when nothing did.
void updateRestStatusWords(RestStatus::Ptr status, const std::string& failure, const std::string& warning);

// What a well-formed data reply held instead of records of its kind, when
// it held something else; "" for records or an empty list.
std::string unexpectedShape(const pugi::xml_document& doc, VsDataType type);

std::ostream& operator<<(std::ostream& os, const VmwareVsSm& sm);

}  // namespace Harbec
