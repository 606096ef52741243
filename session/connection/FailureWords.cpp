#include "session/connection/FailureWords.h"

#include <stdsoap2.h>

#include <cstring>
#include <sstream>

#include "messaging/TextUtils.h"
#include "session/connection/ReplyClock.h"

namespace Harbec {

namespace {

std::string text(const char* const* s) { return s && *s ? *s : ""; }

std::string faultWords(struct soap* soap) {
  std::string type = faultType(text(soap_faultdetail(soap)).c_str());
  std::string message = text(soap_faultstring(soap));
  return "SOAP fault " + (type.empty() ? std::string("(no type)") : type) + ": " +
         (message.empty() ? std::string("(no message)") : message);
}

}  // namespace

std::string faultType(const char* detail) {
  if (!detail) return "";
  // xsi:type="ManagedObjectNotFound", or the element <ManagedObjectNotFoundFault ...>.
  if (const char* at = std::strstr(detail, "type=\"")) {
    at += 6;
    std::string type(at, std::strcspn(at, "\""));
    size_t colon = type.find(':');
    return colon == std::string::npos ? type : type.substr(colon + 1);
  }
  const char* open = std::strchr(detail, '<');
  if (!open) return "";
  std::string name(open + 1, std::strcspn(open + 1, " />"));
  size_t colon = name.find(':');
  if (colon != std::string::npos) name = name.substr(colon + 1);
  if (name.size() > 5 && name.compare(name.size() - 5, 5, "Fault") == 0) name.resize(name.size() - 5);
  return name;
}

std::string failureWords(struct soap* soap) {
  if (!soap) return "no context";
  int error = soap->error;
  if (double limit = ReplyClock::expired()) {
    std::ostringstream text;
    text << "no complete reply within " << limit << " s";
    return text.str();
  }
  if (soap->recv_maxlength && soap->count >= soap->recv_maxlength)
    return "reply larger than " + std::to_string(soap->recv_maxlength) + " bytes";
  if (error == SOAP_EOF)
    return soap->errnum ? std::string("connection lost: ") + std::strerror(soap->errnum)
                        : "connection closed before the reply was complete";
  if (error == SOAP_CLI_FAULT || error == SOAP_SVR_FAULT || error == SOAP_FAULT) return faultWords(soap);
  if (error == SOAP_TCP_ERROR)
    return "no connection: " + (soap->errnum ? std::string(std::strerror(soap->errnum)) : text(soap_faultdetail(soap)));
  if (error == SOAP_SSL_ERROR) return "TLS failure: " + text(soap_faultdetail(soap));
  // gSOAP's error is the HTTP status where the reply was no SOAP reply.
  if (error == 200) return "HTTP 200, but no readable reply to the call";
  if (error > 200 && error < 600) return httpStatusLine(error);
  std::string what = text(soap_faultstring(soap));
  return "reply not readable (gSOAP error " + std::to_string(error) + (what.empty() ? "" : ": " + what) + ")";
}

}  // namespace Harbec
