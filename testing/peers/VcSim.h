// The vCenter simulator of vcsim/, run as a child process on 127.0.0.1:
// HTTPS vim25 endpoint and a JSON control port, both on free ports. It
// stops with the object, or when its stdin closes, so a program that dies
// takes it along.
#pragma once
#include <stdexcept>
#include <string>
#include <vector>

#include "peers/PeerProcess.h"

namespace vcsim {

class Simulator {
 public:
  // `quietMs`: how long the simulator may take to build its inventory.
  Simulator(const std::string& username, const std::string& password, std::vector<std::string> args = {},
            int quietMs = 60000)
      : process_(peer::binary("vcsim"), withCredentials(username, password, std::move(args)), {"VCSIM_URL", "VCSIM_CONTROL"},
                 quietMs),
        url(process_.printed("VCSIM_URL")),
        control(process_.printed("VCSIM_CONTROL")) {}

  // The SOAP endpoint and the control port close on return.
  void stop() { process_.stop(); }

  std::string call(const std::string& method, const std::string& target, const std::string& body = "") {
    std::string reply;
    int status = peer::http(control, method, target, body, &reply);
    if (status != 200) throw std::runtime_error(target + ": " + std::to_string(status) + " " + reply);
    return reply;
  }

  // A fault rule for the next `count` calls of a vim25 method: kind is
  // "fault" (with faultString), "drop" or "hang".
  std::string fault(const std::string& method, const std::string& kind, const std::string& faultString = "",
                    int count = 1) {
    return call("POST", "/faults",
                "{\"method\":\"" + method + "\",\"kind\":\"" + kind + "\",\"faultString\":\"" + faultString +
                    "\",\"count\":" + std::to_string(count) + "}");
  }
  // Any fault rule: `kind` and the rule's other fields as JSON members
  // (R"("bytesPerSecond":1)"), for the next `count` calls (0: until reset).
  std::string spoil(const std::string& method, const std::string& kind, const std::string& fields = "",
                    int count = 1) {
    return call("POST", "/faults",
                "{\"method\":\"" + method + "\",\"kind\":\"" + kind + "\",\"count\":" + std::to_string(count) +
                    (fields.empty() ? "" : "," + fields) + "}");
  }
  // Faults, calls, records and options back to their start; the inventory stays.
  void reset() { call("POST", "/reset"); }

  // Messages of the user events posted so far, in order, and the entity of each.
  std::vector<std::string> userEventMessages() { return peer::values(call("GET", "/userevents"), "msg"); }
  std::vector<std::string> userEventEntities() { return peer::values(call("GET", "/userevents"), "value"); }
  // Methods of the SOAP calls received so far, in order.
  std::vector<std::string> calls() { return peer::values(call("GET", "/calls"), "method"); }
  std::string rootFolder() { return peer::values(call("GET", "/inventory"), "rootFolder").at(0); }

  // A DV port in use on a switch, and what it connects: connecteeType
  // "pnic" (entity: the host), "vmVnic" (entity: the machine) or a VMkernel
  // NIC (nicKey of proxyHost).
  struct DvPort {
    std::string key, connecteeType, entity, nicKey, proxyHost;
  };
  std::vector<DvPort> dvPorts(const std::string& dvs) {
    std::string json = call("GET", "/ports?dvs=" + dvs);
    std::vector<std::string> keys = peer::values(json, "key"), types = peer::values(json, "connecteeType"),
                             entities = peer::values(json, "value"), nicKeys = peer::values(json, "nicKey"),
                             proxies = peer::values(json, "proxyHost");
    std::vector<DvPort> out;
    for (size_t i = 0; i < keys.size(); ++i) out.push_back({keys[i], types[i], entities[i], nicKeys[i], proxies[i]});
    return out;
  }

 private:
  static std::vector<std::string> withCredentials(const std::string& username, const std::string& password,
                                                  std::vector<std::string> args) {
    args.insert(args.begin(), {"-username", username, "-password", password});
    return args;
  }

  peer::Process process_;

 public:
  const std::string url;
  const std::string control;
};

}  // namespace vcsim
