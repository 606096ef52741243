#include "vshield/VmwareVsSm.h"

#include <sstream>

#include "Kel/Assert.h"
#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "vshield/HttpRetrieval.h"
#include "vshield/VsLog.h"

namespace Harbec {

VmwareVsSm::VmwareVsSm(const RestStatus::Ptr& restStatus, const SessionStatus::Ptr& sessionStatus,
                       const VsConfig::PtrConst& vsConfig, const VS::Ptr& vs,
                       bool exitOnConnectionError)
    : RestRequestHandler(restStatus, sessionStatus),
      vsConfig_(vsConfig),
      vs_(vs),
      exitOnConnectionError_(exitOnConnectionError) {
  handleInitialized();
}

VmwareVsSm::~VmwareVsSm() { kelDoZombieReactors(true); }

void VmwareVsSm::handleInitialized() {
  HARBEC_TRACE_ENTRY();
  updateSessionStatusAndLog(sessionStatus(), sessionInit);
  initializedIs(true);
}

void VmwareVsSm::hasNotificationActiveIs(bool b) {
  if (b != hasNotificationActive()) RestRequestHandler::hasNotificationActiveIs(b);
}

void VmwareVsSm::kelDoZombieReactors(bool b) {
  if (b != kelMarkedForDeletion()) RestRequestHandler::kelDoZombieReactors(b);
}

VmwareVsSm::Ptr vmwareVsSmFactory(const RestStatus::Ptr& restStatus,
                                  const SessionStatus::Ptr& sessionStatus,
                                  const VsConfig::PtrConst& vsConfig, const VS::Ptr& vs,
                                  bool exitOnConnectionError) {
  HARBEC_TRACE_ENTRY();
  return Kel::validPtr(VmwareVsSm::Ptr::adopt(
      new VmwareVsSm(restStatus, sessionStatus, vsConfig, vs, exitOnConnectionError)));
}

void VmwareVsSm::processRestRequest(const RestRequest::PtrConst& restRequest) {
  // A request that comes before construction has ended is dropped unseen.
  if (!initialized_) return;
  HARBEC_TRACE_ENTRY();
  HARBEC_TRACE(5, "RestRequest: " << restRequest->name());

  if (restRequest->vsDataType() == vsBatch) {
    // Each member on its own, nested batches included; the batch itself
    // counts for nothing, and one member's failure doesn't stop the others.
    Kel::Ptr<const BatchedRestRequest> batch = Kel::ptr_cast<const BatchedRestRequest>(restRequest);
    for (auto i = batch->restRequestIteratorConst(); i; ++i) processRestRequest(i.value());
    return;
  }

  KEL_ASSERT(restRequest->requestType() == httpGET() && "Only HTTP GETS supported.");
  Kel::String8 endpoint = restRequest->toEndPoint();
  MemoryBuffer buffer;
  // The document points into the buffer and goes first.
  pugi::xml_document doc;
  if (!fetchDocument(endpoint, buffer, doc)) return;
  if (restRequest->vsDataType() == vsVxlanSegment && !fetchRemainingPages(*restRequest, doc, endpoint)) return;

  switch (restRequest->vsDataType()) {
    case vsHeartBeat: processHeartBeatRequest(doc); break;
    case vsCluster: processClusterRequest(doc); break;
    case vsMulticastAddrRange: processMulticastAddressRangeRequest(doc); break;
    case vsNetworkScope: processNetworkScopeRequest(doc); break;
    case vsVniRange: processVniRangeRequest(doc); break;
    case vsVxlanSegment: processVxlanSegmentRequest(doc); break;
    default: KEL_ASSERT(0 && "Unexpected Vshield data type.");
  }
  // Counted only once the handler has returned.
  updateRestStatusResult(restStatus(), endpoint, 200);
  if (restRequest->vsDataType() != vsHeartBeat)
    updateRestStatusWords(restStatus(), "", unexpectedShape(doc, restRequest->vsDataType()));
}

bool VmwareVsSm::fetchDocument(const Kel::String8& endpoint, MemoryBuffer& buffer, pugi::xml_document& doc) {
  HARBEC_TRACE(6, "Endpoint: " << endpoint);
  updateRestStatusSent(restStatus(), endpoint);
  long code = httpGetRequest(this, endpoint, buffer);
  if (code != 200) {
    updateSessionStatusAndLog(sessionStatus(), sessionDisconnected);
    updateRestStatusResult(restStatus(), endpoint, code);
    updateRestStatusWords(restStatus(), buffer.failure, "");
    return false;
  }
  pugi::xml_parse_result parsed =
      doc.load_buffer_inplace(buffer.buffer, buffer.size, pugi::parse_default, pugi::encoding_auto);
  if (parsed.status == pugi::status_ok) return true;
  updateSessionStatusAndLog(sessionStatus(), sessionDisconnected);
  // 500 stands for a reply that can't be used.
  updateRestStatusResult(restStatus(), endpoint, 500);
  Kel::log(VMWAREVS_REST_FAULT, endpoint);
  updateRestStatusWords(restStatus(),
                        "HTTP 200, but the reply is not XML: " + std::string(parsed.description()) + " at byte " +
                            std::to_string(parsed.offset) + " of " + std::to_string(buffer.size),
                        "");
  return false;
}

void VmwareVsSm::processHeartBeatRequest(const pugi::xml_document& doc) {
  HARBEC_TRACE_ENTRY();
  // Traced only: the version is neither stored nor compared.
  HARBEC_TRACE(8, "VShield version: " << doc.document_element().child("versionInfo").text().get());
  updateSessionStatusAndLog(sessionStatus(), sessionConnected);
}

void updateSessionStatusAndLog(SessionStatus::Ptr status, SessionState newState) {
  HARBEC_TRACE_ENTRY();
  // Once per entry into sessionConnected, not once per heartbeat.
  if (newState == sessionConnected && status->sessionState() != sessionConnected)
    Kel::log(VMWAREVS_CONNECTION_SUCCESSFUL);
  updateSessionStatus(status, newState);
}

void updateRestStatusSent(RestStatus::Ptr status, const Kel::String8& endpoint) {
  HARBEC_TRACE_ENTRY();
  Kel::LockAnchor anchor(Kel::ActivityLockAnchor::lock());
  status->lastMsgSentIs(endpoint);
  status->lastMsgSentTimeIs(Kel::now());
}

void updateRestStatusWords(RestStatus::Ptr status, const std::string& failure, const std::string& warning) {
  Kel::LockAnchor anchor(Kel::ActivityLockAnchor::lock());
  if (failure.size()) status->lastFailureDetailIs(failure);
  status->lastReplyWarningIs(warning);
}

void updateRestStatusResult(RestStatus::Ptr status, const Kel::String8& endpoint, long httpCode) {
  HARBEC_TRACE_ENTRY();
  Kel::LockAnchor anchor(Kel::ActivityLockAnchor::lock());
  // Both recorded times are times of sending, not of the reply.
  if (httpCode == 200) {
    HARBEC_TRACE(6, "Success HTTP Code: " << httpCode);
    status->lastResponseTimeIs(Kel::now() - status->lastMsgSentTime());
    status->successCountIs(status->successCount() + 1);
    KEL_ASSERT(endpoint == status->lastMsgSent());
    status->lastSuccessMsgIs(endpoint);
    status->lastSuccessTimeIs(status->lastMsgSentTime());
  } else {
    HARBEC_TRACE(6, "Error HTTP Code: " << httpCode);
    status->lastResponseTimeIs(0.0);
    status->failureCountIs(status->failureCount() + 1);
    KEL_ASSERT(endpoint == status->lastMsgSent());
    status->lastFailedMsgIs(endpoint);
    status->lastFailureTimeIs(status->lastMsgSentTime());
    status->lastFailureTimeIs(status->lastMsgSentTime());
    std::ostringstream reason;
    reason << httpCode;
    status->lastFailureReasonIs(reason.str());
  }
}

std::ostream& operator<<(std::ostream& os, const VmwareVsSm& sm) {
  return os << sm.fwkType() << "(" << static_cast<const void*>(&sm) << ")";
}

}  // namespace Harbec
