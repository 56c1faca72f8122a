// instrumented.h: whether this build checks itself while it runs, for tests that have to scale down or stand aside.
#pragma once

#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KEL_UNDER_ASAN 1
#endif
#if __has_feature(thread_sanitizer)
#define KEL_UNDER_TSAN 1
#endif
#endif
#ifdef __SANITIZE_ADDRESS__
#define KEL_UNDER_ASAN 1
#endif
#ifdef __SANITIZE_THREAD__
#define KEL_UNDER_TSAN 1
#endif

#ifdef KEL_UNDER_ASAN
inline constexpr bool UnderAddressSanitizer = true;
#else
inline constexpr bool UnderAddressSanitizer = false;
#endif
#ifdef KEL_UNDER_TSAN
inline constexpr bool UnderThreadSanitizer = true;
#else
inline constexpr bool UnderThreadSanitizer = false;
#endif

// For functions that a sanitizer calls itself, before it has made the program or a thread ready for its checks.
#ifdef __clang__
#define KEL_NOT_INSTRUMENTED __attribute__((no_sanitize("address", "thread", "undefined")))
#else
#define KEL_NOT_INSTRUMENTED __attribute__((no_sanitize("address"), no_sanitize("thread"), no_sanitize("undefined")))
#endif

// Figures of long tests: the full one in a plain build.
constexpr int scaled(int full)
{
    return UnderAddressSanitizer || UnderThreadSanitizer ? full / 10 : full;
}
