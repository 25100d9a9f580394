#pragma once

namespace cvlsys {

/// Whether memory is used again without the allocator's knowledge. Not with a sanitizer, which is
/// to see each object come and go.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr bool isRecycling = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || \
    __has_feature(memory_sanitizer)
inline constexpr bool isRecycling = false;
#else
inline constexpr bool isRecycling = true;
#endif
#else
inline constexpr bool isRecycling = true;
#endif

}  // namespace cvlsys
