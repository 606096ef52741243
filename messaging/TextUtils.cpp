#include "messaging/TextUtils.h"

namespace Harbec {

void split(const std::string& s, const std::string& delimiters, std::vector<std::string>& tokens) {
  std::string::size_type start = s.find_first_not_of(delimiters);
  while (start != std::string::npos) {
    std::string::size_type stop = s.find_first_of(delimiters, start);
    tokens.push_back(s.substr(start, stop == std::string::npos ? std::string::npos : stop - start));
    if (stop == std::string::npos) break;
    start = s.find_first_not_of(delimiters, stop);
  }
}

std::string stripExtraWhiteSpace(const std::string& s) {
  std::vector<std::string> words;
  split(s, " ", words);
  std::string out;
  for (const std::string& w : words) {
    if (!out.empty()) out += ' ';
    out += w;
  }
  return out;
}

}  // namespace Harbec
