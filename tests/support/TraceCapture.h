// Every developer trace taken while a capture lives, all levels, whatever
// the trace handle's settings.
#pragma once
#include <sstream>
#include <string>

#include "messaging/HarbecTrace.h"

namespace harness {

class TraceCapture {
 public:
  TraceCapture() { Kel::coverageStream_ = &text_; }
  ~TraceCapture() { Kel::coverageStream_ = nullptr; }
  bool has(const std::string& s) const { return text_.str().find(s) != std::string::npos; }
  std::string text() const { return text_.str(); }

 private:
  std::ostringstream text_;
};

}  // namespace harness
