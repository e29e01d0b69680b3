// Whether this program runs under a sanitizer or valgrind, whose own memory makes limits meaningless and much of it slow.
#pragma once

#include <stdlib.h>
#include <string.h>

namespace support {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kSanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr bool kSanitizer = true;
#else
constexpr bool kSanitizer = false;
#endif
#else
constexpr bool kSanitizer = false;
#endif

inline bool IsInstrumented()
{
    const char* preloaded = getenv("LD_PRELOAD");
    return kSanitizer || (preloaded != nullptr && strstr(preloaded, "vgpreload") != nullptr);
}

} // namespace support
