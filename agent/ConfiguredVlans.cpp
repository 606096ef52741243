#include "agent/ConfiguredVlans.h"

#include <fstream>

namespace HarbecAgent {

namespace {

std::string trimmed(const std::string& s) {
  size_t from = s.find_first_not_of(" \t\r"), to = s.find_last_not_of(" \t\r");
  return from == std::string::npos ? "" : s.substr(from, to - from + 1);
}

// "IFACE=LIST" or, where `blankSplits`, "IFACE LIST".
bool add(const std::string& text, bool blankSplits, ConfiguredVlans& into) {
  size_t split = text.find('=');
  if (split == std::string::npos && blankSplits) split = text.find_first_of(" \t");
  if (split == std::string::npos) return false;
  std::string name = trimmed(text.substr(0, split));
  if (name.empty() || name.find_first_of(" \t") != std::string::npos) return false;
  into[name] = trimmed(text.substr(split + 1));
  return true;
}

}  // namespace

std::string addConfiguredVlans(const std::string& entry, ConfiguredVlans& into) {
  return add(entry, false, into) ? "" : "option --configured-vlans wants IFACE=LIST, not '" + entry + "'";
}

std::string readConfiguredVlans(const std::string& path, ConfiguredVlans& into) {
  std::ifstream in(path);
  if (!in) return "cannot read configured VLANs file " + path;
  std::string line;
  for (unsigned number = 1; std::getline(in, line); ++number) {
    std::string text = trimmed(line.substr(0, line.find('#')));
    if (!text.empty() && !add(text, true, into))
      return path + ":" + std::to_string(number) + ": wants an interface and its VLANs, not '" + text + "'";
  }
  return "";
}

}  // namespace HarbecAgent
