#include "agent/Options.h"

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <tuple>

#include <CLI/CLI.hpp>

#include "agent/ConfigFile.h"
#include "agent/HttpService.h"

namespace HarbecAgent {

std::string usage(const std::string& program) {
  return "Usage: " + program + " [options]\n"
         "Shows the VMware hosts and machines behind this switch's interfaces.\n"
         "With no --vcenter it runs the bundled demo (--demo).\n"
         "\n"
         "vCenter:\n"
         "  --vcenter URL             vCenter address, e.g. vc.example.com or https://vc/sdk\n"
         "  --user NAME               vCenter user\n"
         "  --password-file FILE      file whose first line is the password; - reads stdin\n"
         "vShield Manager (optional):\n"
         "  --vsm URL                 e.g. https://vsm.example.com\n"
         "  --vsm-user NAME           vShield Manager user\n"
         "  --vsm-password-file FILE  as --password-file (after the vCenter line on stdin)\n"
         "This switch:\n"
         "  --bridge-mac MAC          bridge MAC as neighbours announce it over CDP/LLDP\n"
         "  --configured-vlans IFACE=LIST  what an interface carries today (\"untagged,1-100\");\n"
         "                            the view adds what it lacks and what nobody needs\n"
         "  --configured-vlans-file FILE  lines \"IFACE LIST\", as many as wanted\n"
         "  --interfaces LIST         comma-separated interface names (default: those the\n"
         "                            hosts' neighbour data names)\n"
         "Output:\n"
         "  --once                    sync, print the view, exit\n"
         "  --json                    the whole state as one JSON document\n"
         "  --quiet                   no operator log lines on stderr\n"
         "  --retry-for SECONDS       keep retrying the connect this long (default 60, 0: ever)\n"
         "  --poll SECONDS            live mode: seconds between neighbour, probe, counter and\n"
         "                            vShield rounds (default 10)\n"
         "  --demo                    start the vCenter simulator and the vShield stand-in\n"
         "  --no-supervise            run in this process; by default the work runs in a\n"
         "                            child process that is restarted when it fails\n"
         "Limits:\n"
         "  --connect-timeout SECONDS to get a connection to either peer (default 10)\n"
         "  --reply-timeout SECONDS   for a vCenter reply (default 600); the update loop\n"
         "                            waits for vCenter's first byte as long as it takes\n"
         "  --vsm-timeout SECONDS     for a whole vShield Manager exchange (default 60)\n"
         "  --max-reply-mb MB         largest vCenter reply (default 1024)\n"
         "  --vsm-max-reply-mb MB     largest vShield Manager reply (default 256)\n"
         "  --ca-file FILE            check vCenter's certificate against these CAs\n"
         "  --vsm-ca-file FILE        check vShield Manager's certificate against these CAs\n"
         "                            (without them, any certificate is taken)\n"
         "  --vsm-proxy direct|env|URL  proxy to vShield Manager (default direct: none,\n"
         "                            whatever http_proxy and https_proxy say)\n"
         "HTTP interface (off by default):\n"
         "  --listen ADDR:PORT        serve the view, its changes, metrics, health and a web\n"
         "                            page here (e.g. 127.0.0.1:9870; port 0 takes a free one)\n"
         "  --http-token-file FILE    bearer token that every request must carry; needed\n"
         "                            unless ADDR is a loopback address\n"
         "  --tls-cert FILE --tls-key FILE  serve HTTPS with this certificate and key\n"
         "  --config FILE             read these settings from a TOML file first (the\n"
         "                            service's is /etc/harbec/agent.conf); options given\n"
         "                            here override it; SIGHUP reads it again\n"
         "  --vcenter-name NAME       of the configuration's several vCenters, serve only\n"
         "                            this one (without it, each gets an agent process)\n"
         "  -h, --help                this text\n"
         "Without --once the view is printed, then each change as it happens, until\n"
         "interrupted.\n"
         "\n"
         "Exit status:\n"
         "  0    done: the view printed (--once), or stopped by a signal after it\n"
         "  1    vCenter cannot be reached or refuses the login, or the update loop\n"
         "       is lost (the supervisor restarts the work, except with --once)\n"
         "  2    bad arguments, a password, token or CA file that cannot be read, or\n"
         "       an HTTP address that cannot be served\n"
         "  3    stopped by a signal before the first view\n"
         "  255  the library ended the work on a fatal failure of vCenter (restarted)\n"
         "  128+N  the work died of signal N, 134 on a broken assertion (restarted)\n"
         "The supervisor restarts after 1 s, doubling up to 30 s; after a minute of\n"
         "health the delay starts over. It prints one line for each end of the work.\n";
}

namespace {

std::vector<std::string> splitList(const std::string& list) {
  std::vector<std::string> out;
  size_t from = 0;
  while (from <= list.size()) {
    size_t end = list.find(',', from);
    if (end == std::string::npos) end = list.size();
    std::string item = list.substr(from, end - from);
    if (!item.empty()) out.push_back(item);
    from = end + 1;
  }
  return out;
}

bool readable(const std::string& path) { return path.empty() || std::ifstream(path).good(); }

std::string httpOptionsError(const Options& o) {
  std::string host;
  int port = 0;
  if (o.listen.empty())
    return o.httpTokenFile.empty() && o.tlsCert.empty() && o.tlsKey.empty() ? "" : "the HTTP options need --listen";
  if (!splitListen(o.listen, &host, &port)) return "--listen wants ADDR:PORT, not '" + o.listen + "'";
  if (!isLoopback(host) && o.httpTokenFile.empty())
    return "--listen away from loopback needs --http-token-file";
  if (o.tlsCert.empty() != o.tlsKey.empty()) return "--tls-cert and --tls-key go together";
  return "";
}

// The value of an option that the configuration file needs before the
// rest of the line is read, wherever it stands; the last one counts.
std::string earlyValue(int argc, const char* const* argv, const std::string& option) {
  std::string value;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == option && i + 1 < argc) value = argv[++i];
    if (arg.rfind(option + "=", 0) == 0) value = arg.substr(option.size() + 1);
  }
  return value;
}

// Options that a file or a list can give more than once; they are applied
// after the line is read, so that their errors keep their own words.
struct Repeated {
  std::vector<std::string> interfaces, configuredVlans, configuredVlansFiles, passwords, vsmPasswords;
};

// The options as CLI11 reads them into o. A value given twice: the last
// counts. Options absent from the line leave what the file gave.
void declare(CLI::App& app, Options& o, bool* help, Repeated& more) {
  app.set_help_flag();  // usage() is the help
  app.option_defaults()->multi_option_policy(CLI::MultiOptionPolicy::TakeLast);
  app.add_flag("-h,--help", *help);
  const std::pair<const char*, std::string*> texts[] = {
      {"--vcenter", &o.vcenterUrl},         {"--user", &o.vcenterUser},
      {"--password-file", &o.vcenterPasswordFile}, {"--vsm", &o.vsmUrl},
      {"--vsm-user", &o.vsmUser},           {"--vsm-password-file", &o.vsmPasswordFile},
      {"--bridge-mac", &o.bridgeMac},       {"--ca-file", &o.caFile},
      {"--vsm-ca-file", &o.vsmCaFile},      {"--vsm-proxy", &o.vsmProxy},
      {"--listen", &o.listen},              {"--http-token-file", &o.httpTokenFile},
      {"--tls-cert", &o.tlsCert},           {"--tls-key", &o.tlsKey},
      {"--config", &o.configFile},         {"--vcenter-name", &o.vcenterName}};
  for (const auto& [name, target] : texts) app.add_option(name, *target);
  const std::pair<const char*, double*> numbers[] = {
      {"--retry-for", &o.retryFor},           {"--poll", &o.pollEvery},
      {"--connect-timeout", &o.connectTimeout}, {"--reply-timeout", &o.replyTimeout},
      {"--vsm-timeout", &o.vsmTimeout},       {"--max-reply-mb", &o.maxReplyMb},
      {"--vsm-max-reply-mb", &o.vsmMaxReplyMb}};
  const CLI::Validator notNegative(
      [](const std::string& text) {
        char* end = nullptr;
        const double v = std::strtod(text.c_str(), &end);
        return !text.empty() && *end == '\0' && v >= 0 ? "" : "wants a number, not '" + text + "'";
      },
      "NUMBER");
  for (const auto& [name, target] : numbers) app.add_option(name, *target)->check(notNegative);
  const std::pair<const char*, std::vector<std::string>*> lists[] = {
      {"--interfaces,--interface", &more.interfaces}, {"--configured-vlans", &more.configuredVlans},
      {"--configured-vlans-file", &more.configuredVlansFiles}, {"--password", &more.passwords},
      {"--vsm-password", &more.vsmPasswords}};
  for (const auto& [name, target] : lists)
    app.add_option(name, *target)->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  app.add_flag("--once", o.once);
  app.add_flag("--json", o.json);
  app.add_flag("--demo", o.demo);
  app.add_flag("-q,--quiet", o.quiet);
  app.add_flag_callback("--no-supervise", [&o] { o.supervise = false; });
}

std::string applyRepeated(const Repeated& more, Options& o) {
  const std::pair<const char*, const std::vector<std::string>*> secrets[] = {{"--password", &more.passwords},
                                                                            {"--vsm-password", &more.vsmPasswords}};
  for (const auto& [name, given] : secrets)
    if (!given->empty()) return "passwords are not taken on the command line: use " + std::string(name) + "-file";
  for (const std::string& list : more.interfaces)
    for (const std::string& n : splitList(list)) o.interfaces.push_back(n);
  for (const std::string& given : more.configuredVlans)
    if (std::string e = addConfiguredVlans(given, o.configuredVlans); !e.empty()) return e;
  for (const std::string& file : more.configuredVlansFiles)
    if (std::string e = readConfiguredVlans(file, o.configuredVlans); !e.empty()) return e;
  return "";
}

}  // namespace

ParsedOptions parseOptions(int argc, const char* const* argv) {
  ParsedOptions r;
  Options& o = r.options;
  o.configFile = earlyValue(argc, argv, "--config");
  o.vcenterName = earlyValue(argc, argv, "--vcenter-name");
  if (!o.vcenterName.empty() && o.configFile.empty()) {
    r.error = "--vcenter-name needs --config";
    return r;
  }
  if (!o.configFile.empty()) {
    r.error = readConfigFile(o.configFile, &o);
    if (!r.error.empty()) return r;
  }
  CLI::App app;
  Repeated more;
  declare(app, o, &r.help, more);
  // "--name=" with nothing after the sign is an empty value; CLI11 would
  // take the next word for it.
  std::vector<std::string> words(argv, argv + argc);
  std::vector<const char*> line;
  for (std::string& w : words) {
    const bool emptyValue = w.rfind("--", 0) == 0 && w.size() > 3 && w.back() == '=';
    if (emptyValue) w.pop_back();
    line.push_back(w.c_str());
    if (emptyValue) line.push_back("");
  }
  try {
    app.parse(static_cast<int>(line.size()), line.data());
  } catch (const CLI::ParseError& e) {
    r.error = e.what();
    return r;
  }
  if (r.help) return r;
  r.error = applyRepeated(more, o);
  if (!r.error.empty()) return r;

  if (o.pollEvery <= 0) o.pollEvery = 10;
  if (!o.vcenterUrl.empty() && o.vcenterName.empty()) o.vcenterNames.clear();  // the command line's one vCenter
  if (o.fansOut()) return r;  // each agent process checks its own
  if (o.vcenterUrl.empty() && !o.configFile.empty() && !o.demo) {
    r.error = "no vCenter in the configuration " + o.configFile + " ([vcenter] url)";
    return r;
  }
  if (o.vcenterUrl.empty()) o.demo = true;
  if (o.demo && !o.vcenterUrl.empty()) {
    r.error = "--demo brings its own vCenter: leave out --vcenter";
  } else if (!o.demo && o.vcenterUser.empty()) {
    r.error = "--vcenter needs --user";
  } else if (!o.demo && o.vcenterPasswordFile.empty()) {
    r.error = "--vcenter needs --password-file (- for standard input)";
  } else if (!o.vsmUrl.empty() && (o.vsmUser.empty() || o.vsmPasswordFile.empty())) {
    r.error = "--vsm needs --vsm-user and --vsm-password-file";
  } else if (o.vsmUrl.empty() && (!o.vsmUser.empty() || !o.vsmPasswordFile.empty())) {
    r.error = "--vsm-user and --vsm-password-file need --vsm";
  } else if (!readable(o.caFile) || !readable(o.vsmCaFile)) {
    r.error = "cannot read CA file " + (readable(o.caFile) ? o.vsmCaFile : o.caFile);
  } else {
    r.error = httpOptionsError(o);
  }
  if (!o.demo) o.vcenterUrl = vcenterSdkUrl(o.vcenterUrl);
  while (!o.vsmUrl.empty() && o.vsmUrl.back() == '/') o.vsmUrl.pop_back();
  return r;
}

namespace {
auto fields(const Options& o) {
  return std::tie(o.vcenterUrl, o.vcenterUser, o.vcenterPasswordFile, o.vsmUrl, o.vsmUser, o.vsmPasswordFile,
                  o.bridgeMac, o.interfaces, o.configuredVlans, o.once, o.json, o.demo, o.quiet, o.retryFor,
                  o.pollEvery, o.supervise, o.connectTimeout, o.replyTimeout, o.vsmTimeout, o.maxReplyMb,
                  o.vsmMaxReplyMb, o.caFile, o.vsmCaFile, o.vsmProxy, o.listen, o.httpTokenFile, o.tlsCert, o.tlsKey,
                  o.configFile, o.vcenterNames, o.vcenterName);
}
}  // namespace

bool operator==(const Options& a, const Options& b) { return fields(a) == fields(b); }

std::string vcenterSdkUrl(const std::string& given) {
  if (given.find("://") != std::string::npos) return given;
  return "https://" + given + "/sdk";
}

std::string readSecret(const std::string& path, std::string* error) {
  std::string line;
  if (path == "-") {
    if (!std::getline(std::cin, line)) *error = "no password on standard input";
  } else {
    std::ifstream in(path);
    if (!in) {
      *error = "cannot read password file " + path;
      return "";
    }
    std::getline(in, line);
  }
  if (!line.empty() && line.back() == '\r') line.pop_back();
  if (line.empty() && error->empty()) *error = "empty password in " + (path == "-" ? std::string("standard input") : path);
  return line;
}

}  // namespace HarbecAgent
