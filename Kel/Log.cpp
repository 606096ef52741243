#include "Kel/Log.h"

#include <iostream>
#include <memory>
#include <string>

namespace Kel {

const char* const NoActionRequired = "No action is required.";
const char* const CallSupportIfPersists =
    "If the problem persists, contact your customer support representative.";

namespace {
std::mutex& sinkMutex() {
  static std::mutex* m = new std::mutex();
  return *m;
}
// The installed sink, shared with the lines being written through it.
std::shared_ptr<const LogSink>& sink() {
  static auto* s = new std::shared_ptr<const LogSink>();
  return *s;
}
}  // namespace

void logSinkIs(LogSink s) {
  auto installed = s ? std::make_shared<const LogSink>(std::move(s)) : nullptr;
  std::lock_guard<std::mutex> g(sinkMutex());
  sink() = std::move(installed);
}

LogHandle::LogHandle(String8 id, LogSeverity severity, String8 format, String8 explanation,
                     String8 action, double rateInterval, double rateBurst,
                     unsigned char rateLimitArgs)
    : id_(id), severity_(severity), format_(format), explanation_(explanation), action_(action),
      rateInterval_(rateInterval), rateBurst_(rateBurst), rateLimitArgs_(rateLimitArgs) {}

bool LogHandle::okToLog(uint32_t hash) const {
  if (rateLimitArgs_ == 0 || rateInterval_ <= 0) return true;
  // A token bucket per distinct text: rateBurst lines, refilled once per rateInterval.
  std::lock_guard<std::mutex> g(mutex_);
  double t = now();
  auto& [last, tokens] = lastLogged_.try_emplace(hash, t, rateBurst_).first->second;
  tokens += (t - last) / rateInterval_ * rateBurst_;
  if (tokens > rateBurst_) tokens = rateBurst_;
  last = t;
  if (tokens < 1.0) return false;
  tokens -= 1.0;
  return true;
}

String8 LogHandle::text(const String8* strings, unsigned count) const {
  std::string out;
  const char* f = format_.charPtr();
  unsigned next = 0;
  for (size_t i = 0; i < format_.length(); ++i) {
    if (f[i] == '%' && i + 1 < format_.length() && f[i + 1] == 's') {
      if (next < count) out.append(strings[next].charPtr(), strings[next].length());
      ++next;
      ++i;
    } else {
      out.push_back(f[i]);
    }
  }
  return String8(out);
}

void LogHandle::log(uint32_t, const String8* strings, unsigned count) const {
  String8 line = text(strings, count);
  std::shared_ptr<const LogSink> s;
  {
    std::lock_guard<std::mutex> g(sinkMutex());
    s = sink();
  }
  // Called without the mutex: a sink may log in its turn.
  if (s) {
    (*s)(*this, line);
    return;
  }
  std::lock_guard<std::mutex> g(sinkMutex());
  std::cerr << id_ << ": " << line << std::endl;
}

}  // namespace Kel
