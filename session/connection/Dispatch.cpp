// The one entry of the session: a request is narrowed to its concrete type
// and handed to its handler. A SoapException ends here and goes to
// handleSoapException; anything else passes on and ends the process.
#include "Kel/Assert.h"
#include "messaging/HarbecTrace.h"
#include "session/HarbecSmInternal.h"

namespace Harbec {

void HarbecSm::processSoapRequest(const Kel::Ptr<const SoapRequest>& request) {
  if (!initialized_) return;
  HARBEC_TRACE_ENTRY();
  bool hasCallback = request->targetCallback().length() > 0;
  try {
    switch (request->requestType()) {
      case counterUpdateRequestType: {
        Kel::Ptr<const CounterUpdateRequest> counterUpdateReq = Kel::ptr_cast<const CounterUpdateRequest>(request);
        KEL_ASSERT(counterUpdateReq && "Cast to CounterUpdateRequest failed.");
        handleCounterUpdateRequest(counterUpdateReq);
        break;
      }
      case connectRequestType: {
        Kel::Ptr<const ConnectRequest> connectReq = Kel::ptr_cast<const ConnectRequest>(request);
        KEL_ASSERT(connectReq && "Cast to ConnectRequest failed.");
        handleConnectRequest(connectReq);
        break;
      }
      case blockPortRequestType: {
        Kel::Ptr<const BlockPortRequest> blockPortReq = Kel::ptr_cast<const BlockPortRequest>(request);
        KEL_ASSERT(blockPortReq && "Cast to BlockPortRequest failed.");
        handleBlockPortRequest(blockPortReq);
        break;
      }
      case checkForUpdatesRequestType: {
        Kel::Ptr<const CheckForUpdatesRequest> checkForUpdatesReq =
            Kel::ptr_cast<const CheckForUpdatesRequest>(request);
        KEL_ASSERT(checkForUpdatesReq && "Cast to CheckForUpdatesRequest failed.");
        handleCheckForUpdatesRequest(checkForUpdatesReq);
        break;
      }
      case updateHostNwInfoRequestType: {
        Kel::Ptr<const UpdateHostNwInfoRequest> updateHostNwInfoReq =
            Kel::ptr_cast<const UpdateHostNwInfoRequest>(request);
        KEL_ASSERT(updateHostNwInfoReq && "Cast to UpdateHostNwInfo failed.");
        handleUpdateHostNwInfoRequest(updateHostNwInfoReq);
        break;
      }
      case fetchDvPortRequestType: {
        Kel::Ptr<const FetchDvPortRequest> fetchDvPortReq = Kel::ptr_cast<const FetchDvPortRequest>(request);
        KEL_ASSERT(fetchDvPortReq && "Cast to FetchDvPortRequest failed.");
        if (hasCallback) {
          handleFetchDvPortRequestWithCallback(fetchDvPortReq);
        } else {
          handleFetchDvPortRequest(fetchDvPortReq);
        }
        break;
      }
      case refreshDvPortRequestType: {
        Kel::Ptr<const RefreshDvPortRequest> refreshDvPortReq = Kel::ptr_cast<const RefreshDvPortRequest>(request);
        KEL_ASSERT(refreshDvPortReq && "Cast to RefreshDvPortRequest failed.");
        if (hasCallback) {
          handleRefreshDvPortRequestWithCallback(refreshDvPortReq);
        } else {
          handleRefreshDvPortRequest(refreshDvPortReq);
        }
        break;
      }
      case connectionStatusRequestType: {
        Kel::Ptr<const ConnectionStatusRequest> connectionStatusReq =
            Kel::ptr_cast<const ConnectionStatusRequest>(request);
        KEL_ASSERT(connectionStatusReq && "Cast to ConnectionStatusRequest failed.");
        handleConnectionStatusRequest(connectionStatusReq);
        break;
      }
      case logMsgRequestType: {
        Kel::Ptr<const LogMsgRequest> logMsgReq = Kel::ptr_cast<const LogMsgRequest>(request);
        KEL_ASSERT(logMsgReq && "Cast to LogMsgRequest failed.");
        handleLogMsgRequest(logMsgReq);
        break;
      }
      default:
        HARBEC_TRACE(6, "Request name: " << request->name());
        HARBEC_TRACE(6, "Request type: " << request->requestType());
        KEL_ASSERT(0 && "Unexpected request type.");
    }
  } catch (const SoapException& exception) {
    // The memory of the failed exchange, its fault included, goes once the
    // exception has been dealt with.
    FreeSoapMem freeSoapMem(vim_);
    handleSoapException(this, exception);
  }
}

}  // namespace Harbec
