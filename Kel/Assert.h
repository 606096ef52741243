// Assertions that hold in every build: a broken invariant ends the process
// with the C library's assertion message, NDEBUG or not.
#pragma once
#include <cassert>

#define KEL_ASSERT(expr) \
  (static_cast<bool>(expr) ? void(0) : __assert_fail(#expr, __FILE__, __LINE__, __PRETTY_FUNCTION__))
