// A small streaming JSON writer: objects, arrays, strings, numbers and
// booleans, compact or indented by two blanks. Commas and nesting are kept
// by the writer; the caller names keys inside objects only.
#pragma once
#include <string>
#include <vector>

namespace HarbecAgent {

class JsonWriter {
 public:
  explicit JsonWriter(bool indent) : indent_(indent) {}

  JsonWriter& beginObject(const char* key = nullptr) { return open(key, '{'); }
  JsonWriter& endObject() { return close('}'); }
  JsonWriter& beginArray(const char* key = nullptr) { return open(key, '['); }
  JsonWriter& endArray() { return close(']'); }

  JsonWriter& value(const char* key, const std::string& s);
  JsonWriter& value(const char* key, const char* s) { return value(key, std::string(s)); }
  JsonWriter& value(const char* key, long long n);
  JsonWriter& value(const char* key, unsigned n) { return value(key, static_cast<long long>(n)); }
  JsonWriter& value(const char* key, bool b);
  // An array element.
  JsonWriter& element(const std::string& s) { return value(nullptr, s); }

  const std::string& text() const { return out_; }

  static std::string quoted(const std::string& s);

 private:
  JsonWriter& open(const char* key, char bracket);
  JsonWriter& close(char bracket);
  void prefix(const char* key);
  void newline();

  bool indent_;
  std::string out_;
  std::vector<bool> empty_;  // per open level: nothing written in it yet
};

}  // namespace HarbecAgent
