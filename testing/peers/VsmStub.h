// The vShield Manager stand-in of vsmstub/, run as a child process on
// 127.0.0.1, started on free ports and driven over its control port with
// JSON. It stops with the object, or when its stdin closes, so a program
// that dies takes it along.
#pragma once
#include <stdexcept>
#include <string>
#include <vector>

#include "peers/PeerProcess.h"

namespace vsmstub {

using peer::http;
using peer::values;

class Stub {
  peer::Process process_;

 public:
  // With tls, the manager port serves HTTPS with a fresh self-signed
  // certificate, as real managers do.
  explicit Stub(bool tls = false)
      : process_(peer::binary("vsmstub"), tls ? std::vector<std::string>{"-stdin=watch", "-tls"}
                                               : std::vector<std::string>{"-stdin=watch"},
                 {"VSM_URL", "VSM_CONTROL"}) {
    url = process_.printed("VSM_URL");
    control = process_.printed("VSM_CONTROL");
  }

  // POSTs one answer object or an array of them; returns the reply.
  std::string answer(const std::string& json) { return call("POST", "/answers", json); }
  // The answer for one path: the answer object's other members as JSON
  // (R"("status":503)", R"("hang":true)").
  std::string serve(const std::string& path, const std::string& fields) {
    return answer("{\"path\":\"" + path + "\"," + fields + "}");
  }
  std::string call(const std::string& method, const std::string& target, const std::string& body = "") {
    std::string reply;
    int status = http(control, method, target, body, &reply);
    if (status != 200) throw std::runtime_error(target + ": " + std::to_string(status) + " " + reply);
    return reply;
  }
  // The manager and control ports close on return.
  void stop() { process_.stop(); }
  // Request targets received so far, in order.
  std::vector<std::string> uris() { return values(call("GET", "/log"), "uri"); }

  std::string url;
  std::string control;
};

}  // namespace vsmstub
