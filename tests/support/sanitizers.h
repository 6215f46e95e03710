// VARNEK_SANITIZED is defined when AddressSanitizer is built in: tests that
// need every descriptor or read the heap's books skip themselves then.
#pragma once

#if defined(__SANITIZE_ADDRESS__)
#define VARNEK_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VARNEK_SANITIZED 1
#endif
#endif
