// What a SoapException means. Before a session stands, a failure is logged
// and the state says so; once it has stood, a fatal failure restarts the
// agent by ending the process, if exitOnConnectionError says so, and a
// client-side time-out always does.
#include <cstdlib>
#include <cstring>

#include "Kel/Assert.h"
#include "Kel/Lock.h"
#include "messaging/HarbecTrace.h"
#include "session/connection/HarbecLog.h"
#include "session/HarbecSmInternal.h"
#include "session/connection/FailureWords.h"

namespace Harbec {

namespace {

[[noreturn]] void restartAgent() {
  Kel::log(HARBEC_AGENT_RESTART);
  exit(-1);
}

[[noreturn]] void unexpectedException(SessionState state, const SoapException& exception) {
  HARBEC_TRACE(0, "Unexpected SOAP exception in " << state << " state.");
  HARBEC_TRACE(0, "\tDetails: " << exception.what());
  KEL_ASSERT(0 && "Unexpect SOAP exception type.");
  abort();  // not reached
}

}  // namespace

void handleSoapException(Kel::Ptr<HarbecSm> sm, const SoapException& exception) {
  HARBEC_TRACE_ENTRY();
  struct soap* soap = sm->vim()->soap;

  char buffer[4096];
  std::memset(buffer, 0, sizeof buffer);
  soap_sprint_fault(soap, buffer, sizeof buffer);
  std::string text = exception.what().str() + " " + buffer;
  updateSoapError(sm->soapStatus(), text);
  updateSoapFailureDetail(sm->soapStatus(), exception.what().str() + ": " + failureWords(soap));
  HARBEC_TRACE(0, "SoapException: " << text);

  bool tryAgain = false;
  const char** faultString = soap_faultstring(soap);
  if (faultString && *faultString) {
    HARBEC_TRACE(0, "\tFault string: " << *faultString);
    tryAgain = std::strcmp(*faultString, "Try Again") == 0;
  }
  // How gSOAP shows a socket that timed out.
  bool timedOut = false;
  if (soap->error == SOAP_EOF && soap->errnum == 0) {
    HARBEC_TRACE(9, "Client side Timeout detected. Restarting agent");
    timedOut = true;
  }
  const char** faultDetail = soap_faultdetail(soap);
  if (faultDetail && *faultDetail) HARBEC_TRACE(0, "\tFault detail: " << *faultDetail);

  SessionState state;
  {
    Kel::ActivityLockAnchor anchor;
    state = sm->sessionStatus()->sessionState();
  }
  SoapException::Id id = exception.id();
  switch (state) {
    case sessionInit:
    case sessionDisconnected:
      if (id != SoapException::connectionException && id != SoapException::authenticationException)
        unexpectedException(state, exception);
      Kel::log(HARBEC_CONNECT_FAILED, exception.what());
      updateSessionStatus(sm->sessionStatus(), sessionDisconnected);
      break;
    case sessionConnected: {
      bool restartWanted = false;
      if (id == SoapException::fatalRpcException) {
        if (!tryAgain) {
          Kel::log(HARBEC_RPC_FAULT, exception.what());
          Kel::log(HARBEC_AGENT_RESTART);
          restartWanted = true;
        }
      } else if (id == SoapException::recoverableRpcException) {
        Kel::log(HARBEC_RPC_FAULT, exception.what());
      } else {
        unexpectedException(state, exception);
      }
      if (timedOut) restartAgent();
      if (restartWanted && sm->exitOnConnectionError()) restartAgent();
      break;
    }
    default:
      HARBEC_TRACE(0, "Unexpected session state " << state);
      KEL_ASSERT(0 && "Unexpect session state.");
  }
  HARBEC_TRACE(5, __PRETTY_FUNCTION__ << " Done");
}

}  // namespace Harbec
