// What the agent reads from outside: its command line and its password
// files. The input is the command line, words split at NUL bytes; a
// password file holds the same bytes.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <string>
#include <vector>

#include "agent/Options.h"

using namespace HarbecAgent;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::vector<std::string> words{"harbec-agent"};
  for (size_t from = 0; from <= text.size() && words.size() < 64;) {
    size_t end = text.find('\0', from);
    if (end == std::string::npos) end = text.size();
    words.push_back(text.substr(from, end - from));
    from = end + 1;
  }
  std::vector<const char*> argv;
  for (const std::string& w : words) argv.push_back(w.c_str());
  ParsedOptions parsed = parseOptions(static_cast<int>(argv.size()), argv.data());
  if (parsed.help) usage("harbec-agent");
  vcenterSdkUrl(words.back());

  static const std::string path = "/tmp/harbec-fuzz-secret-" + std::to_string(getpid());
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
  std::string error;
  readSecret(path, &error);
  return 0;
}
