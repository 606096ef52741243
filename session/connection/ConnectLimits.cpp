#include "session/connection/ConnectLimits.h"

#include <sys/socket.h>

#include <cmath>

#include "Kel/Assert.h"
#include "session/connection/ReplyClock.h"

namespace Harbec {

void applyLimits(VimBinding* vim, const ViConfig& config) {
  struct soap* soap = vim->soap;
  soap->socket_flags = MSG_NOSIGNAL;
  // Negative: microseconds.
  if (config.connectTimeout() > 0) soap->connect_timeout = -static_cast<int>(std::ceil(config.connectTimeout() * 1e6));
  if (config.maxReplyBytes() > 0) soap->recv_maxlength = config.maxReplyBytes();
  vim->replyTimeout = config.replyTimeout();
  ReplyClock::install(soap);
  if (config.caFile().length() &&
      soap_ssl_client_context(soap, SOAP_SSL_DEFAULT, nullptr, nullptr, config.caFile().charPtr(), nullptr, nullptr))
    KEL_ASSERT(0 && "The CA file cannot be used");
}

}  // namespace Harbec
