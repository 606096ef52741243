#include "agent/ConfigFile.h"

#include <toml++/toml.h>

#include <algorithm>
#include <cstdlib>

namespace HarbecAgent {

namespace {

enum class Kind { text, number, flag, list, secret };

// A setting: its table ("" at the top), key, kind and where it goes. A
// secret names a file; its credential form names a systemd credential.
struct Setting {
  std::string table;
  const char* key;
  Kind kind;
  void* target;
};

std::vector<Setting> settingsOf(Options& o) {
  return {
      {"", "bridge_mac", Kind::text, &o.bridgeMac},
      {"", "interfaces", Kind::list, &o.interfaces},
      {"", "poll", Kind::number, &o.pollEvery},
      {"", "retry_for", Kind::number, &o.retryFor},
      {"", "connect_timeout", Kind::number, &o.connectTimeout},
      {"", "quiet", Kind::flag, &o.quiet},
      {"vcenter", "name", Kind::text, &o.vcenterName},
      {"vcenter", "url", Kind::text, &o.vcenterUrl},
      {"vcenter", "user", Kind::text, &o.vcenterUser},
      {"vcenter", "password", Kind::secret, &o.vcenterPasswordFile},
      {"vcenter", "ca_file", Kind::text, &o.caFile},
      {"vcenter", "reply_timeout", Kind::number, &o.replyTimeout},
      {"vcenter", "max_reply_mb", Kind::number, &o.maxReplyMb},
      {"vshield", "url", Kind::text, &o.vsmUrl},
      {"vshield", "user", Kind::text, &o.vsmUser},
      {"vshield", "password", Kind::secret, &o.vsmPasswordFile},
      {"vshield", "ca_file", Kind::text, &o.vsmCaFile},
      {"vshield", "timeout", Kind::number, &o.vsmTimeout},
      {"vshield", "max_reply_mb", Kind::number, &o.vsmMaxReplyMb},
      {"vshield", "proxy", Kind::text, &o.vsmProxy},
      {"http", "listen", Kind::text, &o.listen},
      {"http", "token", Kind::secret, &o.httpTokenFile},
      {"http", "tls_cert", Kind::text, &o.tlsCert},
      {"http", "tls_key", Kind::text, &o.tlsKey},
  };
}

std::string where(const toml::node& n, const std::string& path) {
  return path + ":" + std::to_string(n.source().begin.line);
}

const char* const kSections[] = {"vcenter", "vshield", "http", "configured_vlans"};

// Takes one value into its setting; "" or what is wrong.
std::string take(const Setting& s, const std::string& key, const std::string& name, const toml::node& value,
                 const std::string& path) {
  auto wrong = [&](const char* want) { return where(value, path) + ": " + name + " wants " + want; };
  switch (s.kind) {
    case Kind::text:
      if (!value.is_string()) return wrong("a string");
      *static_cast<std::string*>(s.target) = *value.value<std::string>();
      return "";
    case Kind::number:
      if (!value.is_number() || *value.value<double>() < 0) return wrong("a number of at least 0");
      *static_cast<double*>(s.target) = *value.value<double>();
      return "";
    case Kind::flag:
      if (!value.is_boolean()) return wrong("true or false");
      *static_cast<bool*>(s.target) = *value.value<bool>();
      return "";
    case Kind::list: {
      const toml::array* items = value.as_array();
      if (!items || !items->is_homogeneous(toml::node_type::string)) return wrong("a list of strings");
      auto* out = static_cast<std::vector<std::string>*>(s.target);
      out->clear();
      for (const toml::node& item : *items) out->push_back(*item.value<std::string>());
      return "";
    }
    case Kind::secret: {
      if (!value.is_string()) return wrong("a string");
      std::string file = *value.value<std::string>();
      if (key == std::string(s.key) + "_credential") {
        const char* dir = std::getenv("CREDENTIALS_DIRECTORY");
        if (!dir) return where(value, path) + ": " + name + " needs systemd's $CREDENTIALS_DIRECTORY";
        file = std::string(dir) + "/" + file;
      }
      *static_cast<std::string*>(s.target) = file;
      return "";
    }
  }
  return "";
}

// The settings of one table ("" the top, whose sections are read apart).
std::string readTable(const toml::table& t, const std::string& table, const std::vector<Setting>& settings,
                      const std::string& path) {
  for (const auto& [k, value] : t) {
    const std::string key(k.str()), name = table.empty() ? key : table + "." + key;
    if (table.empty() && std::find(std::begin(kSections), std::end(kSections), key) != std::end(kSections)) continue;
    if (table == "vcenter" && key == "vshield") continue;  // its own vShield Manager, read apart
    const Setting* found = nullptr;
    bool secretInline = false;
    for (const Setting& s : settings) {
      if (s.table != table) continue;
      const std::string base = s.key;
      if (s.kind == Kind::secret ? key == base + "_file" || key == base + "_credential" : key == base) found = &s;
      if (s.kind == Kind::secret && key == base) secretInline = true;
    }
    if (secretInline)
      return where(value, path) + ": " + name + " would put a secret in the file: name a file (" + key +
             "_file) or a systemd credential (" + key + "_credential)";
    if (!found) return where(value, path) + ": " + name + " is no setting";
    if (std::string e = take(*found, key, name, value, path); !e.empty()) return e;
  }
  return "";
}

// A section that must be a table.
const toml::table* section(const toml::table& root, const char* key, const std::string& path, std::string* error) {
  const toml::node* n = root.get(key);
  if (!n) return nullptr;
  if (!n->is_table()) *error = where(*n, path) + ": " + key + " wants a table";
  return n->as_table();
}

// [vcenter], or [[vcenter]] up to kMaxVcenters, each with a name of its
// own when there are several. *one is the table that this process serves:
// the one named o->vcenterName, the only one, or none of several (their
// names go to o->vcenterNames).
constexpr size_t kMaxVcenters = 8;
std::string chooseVcenter(const toml::node& vc, const std::string& path, Options* o, const toml::table** one) {
  const toml::array* all = vc.as_array();
  if (!all) {
    *one = vc.as_table();
    return *one ? "" : where(vc, path) + ": vcenter wants a table";
  }
  if (all->empty() || all->size() > kMaxVcenters)
    return where(vc, path) + ": between 1 and " + std::to_string(kMaxVcenters) + " vCenters, not " +
           std::to_string(all->size());
  std::vector<std::string> names;
  for (const toml::node& entry : *all) {
    const toml::table* t = entry.as_table();
    if (!t) return where(entry, path) + ": vcenter wants a table";
    const std::string name = t->get("name") ? t->get("name")->value_or(std::string()) : std::string();
    if (all->size() > 1 && name.empty()) return where(entry, path) + ": each of several vCenters needs a name";
    if (std::find(names.begin(), names.end(), name) != names.end())
      return where(entry, path) + ": a second vCenter named " + name;
    names.push_back(name);
    if (all->size() == 1 || name == o->vcenterName) *one = t;
  }
  if (!o->vcenterName.empty() && !*one) return path + ": no vCenter named " + o->vcenterName;
  if (names.size() > 1) o->vcenterNames = names;
  return "";
}

}  // namespace

std::string readConfigFile(const std::string& path, Options* o) {
  toml::table root;
  try {
    root = toml::parse_file(path);
  } catch (const toml::parse_error& e) {
    std::string line = e.source().begin.line ? ":" + std::to_string(e.source().begin.line) : "";
    return "cannot read the configuration " + path + line + ": " + std::string(e.description());
  }
  const std::vector<Setting> settings = settingsOf(*o);
  std::string error = readTable(root, "", settings, path);
  if (const toml::node* vc = root.get("vcenter"); vc && error.empty()) {
    const toml::table* one = nullptr;
    error = chooseVcenter(*vc, path, o, &one);
    if (one && error.empty()) error = readTable(*one, "vcenter", settings, path);
    // With several vCenters, each names the vShield Manager that goes with
    // it: [vcenter.vshield] under its [[vcenter]].
    if (const toml::table* vs = one && error.empty() ? section(*one, "vshield", path, &error) : nullptr)
      error = readTable(*vs, "vshield", settings, path);
    if (const toml::node* top = root.get("vshield"); top && vc->as_array() && vc->as_array()->size() > 1)
      return where(*top, path) + ": with several vCenters, give each its vShield Manager as [vcenter.vshield]";
  }
  for (const char* key : {"vshield", "http"})
    if (const toml::table* t = error.empty() ? section(root, key, path, &error) : nullptr; t && error.empty())
      error = readTable(*t, key, settings, path);
  if (const toml::table* vlans = error.empty() ? section(root, "configured_vlans", path, &error) : nullptr)
    for (const auto& [intf, list] : *vlans) {
      if (!error.empty()) break;
      if (!list.is_string()) {
        error = where(list, path) + ": configured_vlans." + std::string(intf.str()) + " wants a string";
      } else if (std::string e = addConfiguredVlans(std::string(intf.str()) + "=" + *list.value<std::string>(),
                                                    o->configuredVlans);
                 !e.empty()) {
        error = where(list, path) + ": " + e;
      }
    }
  return error;
}

}  // namespace HarbecAgent
