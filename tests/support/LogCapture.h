// A capture of the operator log for tests: every line as "HANDLE: text",
// from any thread, for as long as the object lives.
#pragma once
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "Kel/Log.h"

namespace testsupport {

class LogCapture {
 public:
  using Lines = std::vector<std::string>;

  LogCapture() {
    Kel::logSinkIs([this](const Kel::LogHandle& h, const Kel::String8& text) {
      std::lock_guard<std::mutex> g(mutex_);
      lines_.push_back(h.id().str() + ": " + text.str());
    });
  }
  ~LogCapture() { Kel::logSinkIs(nullptr); }
  Lines take() {
    std::lock_guard<std::mutex> g(mutex_);
    return std::exchange(lines_, {});
  }

 private:
  std::mutex mutex_;
  Lines lines_;
};

}  // namespace testsupport
