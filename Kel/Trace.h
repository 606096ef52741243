// Developer traces. One handle per namespace; a trace is taken only when the
// handle is enabled with the level's flag set, or when coverageStream_ is set.
#pragma once
#include <atomic>
#include <ostream>
#include <sstream>

#include "Kel/String8.h"

namespace Kel {

class TraceHandle {
 public:
  TraceHandle(String8 name, bool enabled);
  const String8& name() const { return name_; }
  bool enabled() const { return enabled_.load(std::memory_order_relaxed); }
  void enabledIs(bool b) { enabled_.store(b, std::memory_order_relaxed); }
  bool level(int l) const {
    return l >= 0 && l < 10 && ((levels_.load(std::memory_order_relaxed) >> l) & 1);
  }
  void levelIs(int l, bool b);
  // Enables the handle with every level up to and including maxLevel.
  void levelsUpTo(int maxLevel);
  bool wanted(int l) const;

 private:
  String8 name_;
  std::atomic<bool> enabled_;
  std::atomic<unsigned> levels_{0};
};

// When set, every trace is taken and written here (test coverage runs).
extern std::atomic<std::ostream*> coverageStream_;

// Where a taken trace ends up: stderr, or the coverage stream when set.
void traceHelper(char const* handleName, String8 context, std::stringstream& text, int level,
                 bool enabled, char const* file, int line, char const* function);

}  // namespace Kel

#define KEL_TRACE_WITH(handle, lvl, expr)                                                    \
  do {                                                                                       \
    ::Kel::TraceHandle& kelTh_ = (handle);                                                   \
    if (kelTh_.wanted(lvl)) {                                                                \
      std::stringstream kelSs_;                                                              \
      kelSs_.precision(12);                                                                  \
      kelSs_ << expr;                                                                        \
      ::Kel::traceHelper(kelTh_.name().charPtr(), "<unknown>", kelSs_, (lvl),                \
                         kelTh_.enabled(), __FILE__, __LINE__, __func__);                    \
    }                                                                                        \
  } while (0)
