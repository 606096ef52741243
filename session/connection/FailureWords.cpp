#include "session/connection/FailureWords.h"

#include <stdsoap2.h>

#include <cstring>

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
  if (error == SOAP_EOF) {
    if (ReplyClock::expired()) return "reply not complete within its time";
    return soap->errnum ? std::string("connection lost: ") + std::strerror(soap->errnum)
                        : "connection closed, or no reply in time";
  }
  if (error == SOAP_CLI_FAULT || error == SOAP_SVR_FAULT || error == SOAP_FAULT) return faultWords(soap);
  if (error == SOAP_TCP_ERROR)
    return "no connection: " + (soap->errnum ? std::string(std::strerror(soap->errnum)) : text(soap_faultdetail(soap)));
  if (error == SOAP_SSL_ERROR) return "TLS failure: " + text(soap_faultdetail(soap));
  if (error == SOAP_EOM && soap->recv_maxlength && soap->count >= soap->recv_maxlength)
    return "reply larger than " + std::to_string(soap->recv_maxlength) + " bytes";
  if (error >= 100 && error < 600) {
    std::string status = text(soap_faultstring(soap));
    return status.rfind("HTTP", 0) == 0 ? status : "HTTP " + std::to_string(error) + " " + status;
  }
  // The reply came but could not be read as the answer to the call.
  std::string what = text(soap_faultstring(soap));
  return "reply not readable (gSOAP " + std::to_string(error) + (what.empty() ? "" : ": " + what) + ")";
}

}  // namespace Harbec
