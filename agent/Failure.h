// What the library recorded of a failed vCenter exchange (SoapStatus's
// lastError: the exception's text, a blank, gSOAP's account of the fault),
// as the agent decides on it and tells it.
#pragma once
#include <string>

namespace HarbecAgent {

struct SoapFailure {
  std::string call;    // the failed call as the session names it ("FetchDVPorts")
  std::string reason;  // one line for the operator
  bool refusedLogin = false;  // vCenter turned down the user name or password
  bool tryAgain = false;      // vCenter asked for the call again ("Try Again")
};

SoapFailure soapFailure(const std::string& lastError);

// A text on one line of moderate length.
std::string oneLine(const std::string& text);

}  // namespace HarbecAgent
