// A failed vim25 call told on one line for an operator, from what the soap
// context holds after it: "SOAP fault ManagedObjectNotFound: ...", "HTTP 503
// Service Unavailable", "reply not complete within 30 s", "no connection:
// Connection refused". Written beside the specified record of the failure
// (SoapStatus::lastError, gSOAP's own account of it).
#pragma once
#include <string>

struct soap;

namespace Harbec {

std::string failureWords(struct soap* soap);

// The vim25 fault type that a fault's detail names ("InvalidLogin"), or "".
std::string faultType(const char* detail);

}  // namespace Harbec
