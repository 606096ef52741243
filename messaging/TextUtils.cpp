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

std::string httpStatusLine(long code) {
  static const std::pair<long, const char*> reasons[] = {
      {301, "Moved Permanently"}, {302, "Found"},         {400, "Bad Request"},          {401, "Unauthorized"},
      {403, "Forbidden"},         {404, "Not Found"},     {408, "Request Timeout"},      {429, "Too Many Requests"},
      {500, "Internal Server Error"}, {501, "Not Implemented"}, {502, "Bad Gateway"},   {503, "Service Unavailable"},
      {504, "Gateway Timeout"}};
  std::string line = "HTTP " + std::to_string(code);
  for (const auto& [number, reason] : reasons)
    if (number == code) line += std::string(" ") + reason;
  return line;
}

}  // namespace Harbec
