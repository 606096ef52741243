// The agent's command line. Passwords never come on it: they are read from
// a file, or from standard input with "-".
#pragma once
#include <string>
#include <vector>

#include "agent/ConfiguredVlans.h"

namespace HarbecAgent {

struct Options {
  std::string vcenterUrl, vcenterUser, vcenterPasswordFile;
  std::string vsmUrl, vsmUser, vsmPasswordFile;
  std::string bridgeMac;
  std::vector<std::string> interfaces;
  ConfiguredVlans configuredVlans;  // what interfaces carry today, to compare with what they must
  bool once = false;
  bool json = false;
  bool demo = false;
  bool quiet = false;      // no operator log lines on stderr
  double retryFor = 60;    // seconds to keep trying to connect; 0: for ever
  double pollEvery = 10;   // seconds between hint, probe, counter and vShield rounds
  bool supervise = true;   // the work in a child process, restarted when it fails

  // Limits of the exchanges with the peers.
  double connectTimeout = 10;  // seconds, both peers
  double replyTimeout = 600;   // seconds for a vCenter reply (the update loop waits for its first byte apart)
  double vsmTimeout = 60;      // seconds for a whole vShield Manager exchange
  double maxReplyMb = 1024, vsmMaxReplyMb = 256;
  std::string caFile, vsmCaFile;  // certificates are checked only against these
  std::string vsmProxy = "direct";  // "direct", "env" (the environment's), or a proxy URL

  // The HTTP interface: off without an address.
  std::string listen, httpTokenFile, tlsCert, tlsKey;

  std::string configFile;  // read first; the command line overrides it
  // A configuration may name several vCenters; each is served by an agent
  // process of its own (see Fanout.h). vcenterNames lists them when there
  // are several; vcenterName is the one this process serves.
  std::vector<std::string> vcenterNames;
  std::string vcenterName;
  // Several vCenters and none chosen: this process starts one agent each.
  bool fansOut() const { return vcenterNames.size() > 1 && vcenterName.empty(); }
};
bool operator==(const Options& a, const Options& b);

struct ParsedOptions {
  Options options;
  bool help = false;
  std::string error;  // one line; empty when the command line is good
};

// argv[0] is the program's name.
ParsedOptions parseOptions(int argc, const char* const* argv);
std::string usage(const std::string& program);

// "vc.example.com" -> "https://vc.example.com/sdk"; a full URL stays.
std::string vcenterSdkUrl(const std::string& given);

// The first line of a file ("-": the next line of standard input), without
// its line end. Empty with *error set when it can't be read.
std::string readSecret(const std::string& path, std::string* error);

}  // namespace HarbecAgent
