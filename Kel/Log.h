// Operator log messages. A LogHandle is a static named message with a
// severity, a printf-like format, an explanation and a recommended action.
// Lines go to stderr unless the host agent installs a sink.
#pragma once
#include <atomic>
#include <functional>
#include <mutex>
#include <unordered_map>
#include <vector>

#include "Kel/String8.h"

namespace Kel {

enum LogSeverity : unsigned char {
  logEmergency = 0,
  logAlert = 1,
  logCritical = 2,
  logError = 3,
  logWarning = 4,
  logNotice = 5,
  logInformational = 6,
  logDebug = 7,
};

extern const char* const NoActionRequired;
extern const char* const CallSupportIfPersists;

class LogHandle {
 public:
  // rateInterval seconds between repeats of one text, up to rateBurst of
  // them; rateLimitArgs is the number of leading arguments that tell texts apart.
  LogHandle(String8 id, LogSeverity severity, String8 format, String8 explanation,
            String8 action, double rateInterval, double rateBurst, unsigned char rateLimitArgs);

  const String8& id() const { return id_; }
  LogSeverity severity() const { return severity_; }
  const String8& format() const { return format_; }
  const String8& explanation() const { return explanation_; }
  const String8& action() const { return action_; }
  double rateInterval() const { return rateInterval_; }
  double rateBurst() const { return rateBurst_; }
  unsigned char rateLimitArgs() const { return rateLimitArgs_; }
  uint32_t idHash() const { return id_.hash(); }

  bool okToLog(uint32_t hash) const;
  void log(uint32_t hash, const String8* strings, unsigned count) const;

  // The text of the message with its arguments put in place of each %s.
  String8 text(const String8* strings, unsigned count) const;

 private:
  String8 id_;
  LogSeverity severity_;
  String8 format_;
  String8 explanation_;
  String8 action_;
  double rateInterval_;
  double rateBurst_;
  unsigned char rateLimitArgs_;
  mutable std::mutex mutex_;
  mutable std::unordered_map<uint32_t, std::pair<double, double>> lastLogged_;
};

// Receives every emitted line: the handle and the formatted text.
using LogSink = std::function<void(const LogHandle&, const String8&)>;
void logSinkIs(LogSink sink);  // an empty sink restores stderr

namespace detail {
inline void toLogArg(std::vector<String8>& v, const String8& s) { v.push_back(s); }
inline void toLogArg(std::vector<String8>& v, const char* s) { v.push_back(String8(s)); }
inline void toLogArg(std::vector<String8>& v, const std::string& s) { v.push_back(String8(s)); }
}  // namespace detail

template <class... Args>
void log(const LogHandle& handle, const Args&... args) {
  if (sizeof...(Args) == 0) {
    if (handle.okToLog(0)) handle.log(0, nullptr, 0);
    return;
  }
  std::vector<String8> strings;
  strings.reserve(sizeof...(Args));
  (detail::toLogArg(strings, args), ...);
  uint32_t hash = 0;
  if (handle.rateLimitArgs() != 0) {
    unsigned n = handle.rateLimitArgs() < strings.size() ? handle.rateLimitArgs()
                                                         : static_cast<unsigned>(strings.size());
    for (unsigned i = 0; i < n; ++i) hash = hash * 31u + strings[i].hash();
    hash ^= handle.idHash();
  }
  if (handle.okToLog(hash)) handle.log(hash, strings.data(), static_cast<unsigned>(strings.size()));
}

}  // namespace Kel
