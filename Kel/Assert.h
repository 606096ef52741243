// Assertions that hold in every build: a broken invariant ends the process
// with the C library's assertion message, NDEBUG or not.
#pragma once

// The C library's reporter; <assert.h> leaves it undeclared under NDEBUG.
extern "C" void __assert_fail(const char* assertion, const char* file, unsigned int line,
                              const char* function) noexcept __attribute__((__noreturn__));

#define KEL_ASSERT(expr) \
  (static_cast<bool>(expr) ? void(0) : __assert_fail(#expr, __FILE__, __LINE__, __PRETTY_FUNCTION__))
