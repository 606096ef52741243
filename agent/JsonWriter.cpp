#include "agent/JsonWriter.h"

#include <cstdio>

namespace HarbecAgent {

std::string JsonWriter::quoted(const std::string& s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default:
        if (c < 0x20) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\u%04x", c);
          out += buf;
        } else {
          out += static_cast<char>(c);
        }
    }
  }
  return out + "\"";
}

void JsonWriter::newline() {
  if (!indent_) return;
  out_ += '\n';
  out_.append(2 * empty_.size(), ' ');
}

void JsonWriter::prefix(const char* key) {
  if (!empty_.empty()) {
    if (!empty_.back()) out_ += ',';
    empty_.back() = false;
    newline();
  }
  if (key) out_ += quoted(key) + (indent_ ? ": " : ":");
}

JsonWriter& JsonWriter::open(const char* key, char bracket) {
  prefix(key);
  out_ += bracket;
  empty_.push_back(true);
  return *this;
}

JsonWriter& JsonWriter::close(char bracket) {
  bool wasEmpty = empty_.back();
  empty_.pop_back();
  if (!wasEmpty) newline();
  out_ += bracket;
  if (empty_.empty() && indent_) out_ += '\n';
  return *this;
}

JsonWriter& JsonWriter::value(const char* key, const std::string& s) {
  prefix(key);
  out_ += quoted(s);
  return *this;
}

JsonWriter& JsonWriter::value(const char* key, long long n) {
  prefix(key);
  out_ += std::to_string(n);
  return *this;
}

JsonWriter& JsonWriter::value(const char* key, bool b) {
  prefix(key);
  out_ += b ? "true" : "false";
  return *this;
}

}  // namespace HarbecAgent
