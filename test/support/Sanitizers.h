#pragma once

// GCC names a sanitizer by a macro of its own, clang by a feature.
#ifndef __has_feature
#define __has_feature(feature) 0
#endif

namespace tarn::test {

#if defined(__SANITIZE_THREAD__) || __has_feature(thread_sanitizer)
inline constexpr bool hasThreadSanitizer = true;
#else
inline constexpr bool hasThreadSanitizer = false;
#endif

#if defined(__SANITIZE_ADDRESS__) || __has_feature(address_sanitizer)
inline constexpr bool hasAddressSanitizer = true;
#else
inline constexpr bool hasAddressSanitizer = false;
#endif

/// Why a test in which a forked child starts a thread cannot run with thread sanitizer: the runtime
/// supports threads in a child only if the parent had one thread when it forked.
inline constexpr const char* noThreadsInForkedChildren =
    "thread sanitizer does not support threads in the child of a process with several threads";

}  // namespace tarn::test
