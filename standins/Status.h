// Status and configuration entities of the host agent that the sessions
// report to and read from.
#pragma once
#include <cstdint>
#include <ostream>

#include "Kel/Record.h"

namespace Harbec {

enum SessionState : unsigned { sessionInit = 0, sessionDisconnected = 1, sessionConnected = 2 };
std::ostream& operator<<(std::ostream& os, const SessionState& s);

#define HARBEC_SESSION_STATUS_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(sessionState, SessionState, SessionState, sessionInit)

class SessionStatus : public Kel::Entity {
  KEL_RECORD(Harbec, SessionStatus, Kel::Entity, HARBEC_SESSION_STATUS_ATTRIBUTES)
 protected:
  explicit SessionStatus(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(SessionStatus, sessionStatusFactory)

// Writes the state under the activity lock.
void updateSessionStatus(SessionStatus::Ptr status, SessionState state);

// Beside what the sessions are specified to report: the last failure told
// on one line for an operator ("timed out after 30 s", "HTTP 503 Service
// Unavailable", "SOAP fault ManagedObjectNotFound: ..."), where the
// specified attributes hold a bare code or gSOAP's account.
#define HARBEC_FAILURE_DETAIL_ATTRIBUTE(SCALAR) SCALAR(lastFailureDetail, LastFailureDetail, Kel::String8, Kel::String8())

#define HARBEC_SOAP_STATUS_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(lastResponseTime, LastResponseTime, double, 0.0)                   \
  SCALAR(lastMsgSent, LastMsgSent, Kel::String8, Kel::String8())            \
  SCALAR(lastMsgSentTime, LastMsgSentTime, double, 0.0)                     \
  SCALAR(lastRoundTripTime, LastRoundTripTime, double, 0.0)                 \
  SCALAR(lastSuccessMsg, LastSuccessMsg, Kel::String8, Kel::String8())      \
  SCALAR(successCount, SuccessCount, unsigned, 0)                           \
  SCALAR(lastFailedMsg, LastFailedMsg, Kel::String8, Kel::String8())        \
  SCALAR(failureCount, FailureCount, unsigned, 0)                           \
  SCALAR(lastSuccessMsgSentTime, LastSuccessMsgSentTime, double, 0.0)       \
  SCALAR(lastFailedMsgSentTime, LastFailedMsgSentTime, double, 0.0)         \
  SCALAR(lastError, LastError, Kel::String8, Kel::String8())                \
  HARBEC_FAILURE_DETAIL_ATTRIBUTE(SCALAR)

class SoapStatus : public Kel::Entity {
  KEL_RECORD(Harbec, SoapStatus, Kel::Entity, HARBEC_SOAP_STATUS_ATTRIBUTES)
 protected:
  explicit SoapStatus(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(SoapStatus, soapStatusFactory)

#define HARBEC_REST_STATUS_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(lastMsgSent, LastMsgSent, Kel::String8, Kel::String8())            \
  SCALAR(lastMsgSentTime, LastMsgSentTime, double, 0.0)                     \
  SCALAR(lastResponseTime, LastResponseTime, double, 0.0)                   \
  SCALAR(lastSuccessMsg, LastSuccessMsg, Kel::String8, Kel::String8())      \
  SCALAR(successCount, SuccessCount, unsigned, 0)                           \
  SCALAR(lastFailedMsg, LastFailedMsg, Kel::String8, Kel::String8())        \
  SCALAR(failureCount, FailureCount, unsigned, 0)                           \
  SCALAR(lastSuccessTime, LastSuccessTime, double, 0.0)                     \
  SCALAR(lastFailureTime, LastFailureTime, double, 0.0)                     \
  SCALAR(lastFailureReason, LastFailureReason, Kel::String8, Kel::String8())  \
  HARBEC_FAILURE_DETAIL_ATTRIBUTE(SCALAR)                                     \
  /* what looked wrong in the last reply that was taken all the same */      \
  SCALAR(lastReplyWarning, LastReplyWarning, Kel::String8, Kel::String8())

class RestStatus : public Kel::Entity {
  KEL_RECORD(Harbec, RestStatus, Kel::Entity, HARBEC_REST_STATUS_ATTRIBUTES)
 protected:
  explicit RestStatus(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(RestStatus, restStatusFactory)

// Where and as whom to connect; read at the moment of use. Beside the
// three the sessions are specified to read, limits that a host agent may
// set: each left at its zero value keeps the sessions' specified behaviour.
//   connectTimeout  seconds to get a connection
//   replyTimeout    seconds for a whole reply, from its first byte (vShield
//                   Manager: for the whole exchange)
//   maxReplyBytes   a longer reply fails
//   caFile          the server's certificate is checked against these CAs
//   proxy           vShield Manager: "" libcurl's default (the environment),
//                   "direct" none, or the proxy's URL
#define HARBEC_SERVER_CONFIG_ATTRIBUTES(SCALAR, CTOR, VALUES, ENTITIES, QUEUE) \
  SCALAR(url, Url, Kel::String8, Kel::String8())                              \
  SCALAR(username, Username, Kel::String8, Kel::String8())                    \
  SCALAR(password, Password, Kel::String8, Kel::String8())                    \
  SCALAR(connectTimeout, ConnectTimeout, double, 0.0)                         \
  SCALAR(replyTimeout, ReplyTimeout, double, 0.0)                             \
  SCALAR(maxReplyBytes, MaxReplyBytes, uint64_t, 0)                           \
  SCALAR(caFile, CaFile, Kel::String8, Kel::String8())                        \
  SCALAR(proxy, Proxy, Kel::String8, Kel::String8())

class ViConfig : public Kel::Entity {
  KEL_RECORD(Harbec, ViConfig, Kel::Entity, HARBEC_SERVER_CONFIG_ATTRIBUTES)
 protected:
  explicit ViConfig(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(ViConfig, viConfigFactory)

class VsConfig : public Kel::Entity {
  KEL_RECORD(Harbec, VsConfig, Kel::Entity, HARBEC_SERVER_CONFIG_ATTRIBUTES)
 protected:
  explicit VsConfig(const Kel::Name& n) : Kel::Entity(n) {}
};
KEL_FACTORY(VsConfig, vsConfigFactory)

}  // namespace Harbec
