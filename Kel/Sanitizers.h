// Whether the code runs under AddressSanitizer or ThreadSanitizer: gcc
// says so with __SANITIZE_*__, clang with __has_feature.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define KEL_UNDER_ASAN 1
#endif
#if defined(__SANITIZE_THREAD__)
#define KEL_UNDER_TSAN 1
#endif
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KEL_UNDER_ASAN 1
#endif
#if __has_feature(thread_sanitizer)
#define KEL_UNDER_TSAN 1
#endif
#endif
