#include "agent/Options.h"

#include <fstream>
#include <iostream>

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
         "  -h, --help                this text\n"
         "Without --once the view is printed, then each change as it happens, until\n"
         "interrupted. Exit status: 0 on success, 1 on a failure, 2 on bad arguments.\n";
}

namespace {

bool seconds(const std::string& text, double* out) {
  try {
    size_t used = 0;
    double v = std::stod(text, &used);
    if (used != text.size() || v < 0) return false;
    *out = v;
    return true;
  } catch (const std::exception&) {
    return false;
  }
}

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

}  // namespace

ParsedOptions parseOptions(int argc, const char* const* argv) {
  ParsedOptions r;
  Options& o = r.options;
  struct Valued {
    const char* name;
    std::string* target;
  };
  const Valued valued[] = {{"--vcenter", &o.vcenterUrl},         {"--user", &o.vcenterUser},
                           {"--password-file", &o.vcenterPasswordFile}, {"--vsm", &o.vsmUrl},
                           {"--vsm-user", &o.vsmUser},           {"--vsm-password-file", &o.vsmPasswordFile},
                           {"--bridge-mac", &o.bridgeMac}};
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i], value;
    bool hasValue = false;
    size_t eq = arg.find('=');
    if (arg.rfind("--", 0) == 0 && eq != std::string::npos) {
      value = arg.substr(eq + 1);
      arg = arg.substr(0, eq);
      hasValue = true;
    }
    auto takeValue = [&]() -> bool {
      if (hasValue) return true;
      if (i + 1 >= argc) {
        r.error = "option " + arg + " needs a value";
        return false;
      }
      value = argv[++i];
      return true;
    };
    auto flag = [&](bool* target) {
      if (hasValue) r.error = "option " + arg + " takes no value";
      *target = true;
    };

    if (arg == "-h" || arg == "--help") {
      r.help = true;
      return r;
    }
    if (arg == "--password" || arg == "--vsm-password") {
      r.error = "passwords are not taken on the command line: use " + arg + "-file";
      return r;
    }
    bool known = false;
    for (const Valued& v : valued) {
      if (arg != v.name) continue;
      known = true;
      if (takeValue()) *v.target = value;
    }
    if (known) {
    } else if (arg == "--interfaces" || arg == "--interface") {
      if (takeValue())
        for (const std::string& n : splitList(value)) o.interfaces.push_back(n);
    } else if (arg == "--retry-for" || arg == "--poll") {
      double* target = arg == "--poll" ? &o.pollEvery : &o.retryFor;
      if (takeValue() && !seconds(value, target)) r.error = "option " + arg + " wants seconds, not '" + value + "'";
    } else if (arg == "--once") {
      flag(&o.once);
    } else if (arg == "--json") {
      flag(&o.json);
    } else if (arg == "--demo") {
      flag(&o.demo);
    } else if (arg == "--quiet" || arg == "-q") {
      flag(&o.quiet);
    } else {
      r.error = "unknown option " + arg;
    }
    if (!r.error.empty()) return r;
  }

  if (o.pollEvery <= 0) o.pollEvery = 10;
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
  }
  if (!o.demo) o.vcenterUrl = vcenterSdkUrl(o.vcenterUrl);
  while (!o.vsmUrl.empty() && o.vsmUrl.back() == '/') o.vsmUrl.pop_back();
  return r;
}

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
  return line;
}

}  // namespace HarbecAgent
