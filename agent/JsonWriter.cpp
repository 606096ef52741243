#include "agent/JsonWriter.h"

#include <cstdio>

namespace HarbecAgent {

namespace {

// Appends s as a JSON string; runs of plain characters go in whole, as the
// view is made on every pass of the live loop.
void appendQuoted(std::string& out, const std::string& s) {
  out += '"';
  size_t plain = 0;
  for (size_t i = 0; i < s.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    if (c >= 0x20 && c != '"' && c != '\\') continue;
    out.append(s, plain, i - plain);
    plain = i + 1;
    switch (c) {
      case '"': out += "\\\""; break;
      case '\\': out += "\\\\"; break;
      case '\n': out += "\\n"; break;
      case '\r': out += "\\r"; break;
      case '\t': out += "\\t"; break;
      default: {
        char buf[8];
        std::snprintf(buf, sizeof buf, "\\u%04x", c);
        out += buf;
      }
    }
  }
  out.append(s, plain, std::string::npos);
  out += '"';
}

}  // namespace

std::string JsonWriter::quoted(const std::string& s) {
  std::string out;
  appendQuoted(out, s);
  return out;
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
  if (!key) return;
  appendQuoted(out_, key);
  out_ += indent_ ? ": " : ":";
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
  appendQuoted(out_, s);
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
