#include "agent/Failure.h"

namespace HarbecAgent {

std::string oneLine(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\n' || c == '\r' || c == '\t') c = ' ';
    if (c == ' ' && (out.empty() || out.back() == ' ')) continue;
    out += c;
  }
  while (!out.empty() && out.back() == ' ') out.pop_back();
  return out.size() > 200 ? out.substr(0, 197) + "..." : out;
}

// "RetrieveServiceContent SOAP 1.1 fault ... \"Connection refused\" Detail:
// connect failed in tcp_connect()" is told as "RetrieveServiceContent:
// Connection refused (connect failed in tcp_connect())"; a refused login as
// "Login: ...".
SoapFailure soapFailure(const std::string& lastError) {
  SoapFailure f;
  const std::string login = "Invalid username and password.";
  f.refusedLogin = lastError.compare(0, login.size(), login) == 0;
  f.call = f.refusedLogin ? "Login" : lastError.substr(0, lastError.find(' '));
  f.tryAgain = lastError.find("Try Again") != std::string::npos;
  std::string text = oneLine(lastError);
  size_t open = text.find('"');
  size_t close = open == std::string::npos ? open : text.find('"', open + 1);
  if (close == std::string::npos) {
    f.reason = text;
    return f;
  }
  f.reason = f.call + ": " + text.substr(open + 1, close - open - 1);
  size_t detail = text.find("Detail: ", close);
  if (detail != std::string::npos && text.compare(detail + 8, std::string::npos, "[no detail]") != 0)
    f.reason += " (" + text.substr(detail + 8) + ")";
  return f;
}

}  // namespace HarbecAgent
