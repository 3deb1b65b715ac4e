// Whether this build runs under AddressSanitizer: it keeps freed memory in quarantine, so RSS
// figures mean nothing there, and it does not mix with valgrind.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
inline constexpr bool k_address_sanitizer = true;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
inline constexpr bool k_address_sanitizer = true;
#else
inline constexpr bool k_address_sanitizer = false;
#endif
#else
inline constexpr bool k_address_sanitizer = false;
#endif
