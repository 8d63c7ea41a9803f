// How much a test of many rounds does.
#ifndef TESTS_SUPPORT_RUN_LENGTH_H_
#define TESTS_SUPPORT_RUN_LENGTH_H_

namespace support {

// DNS_PROXY_SANITIZED and DNS_PROXY_EMULATED come from the build (tests/support/CMakeLists.txt).
#if defined(DNS_PROXY_SANITIZED)
inline constexpr bool kSanitized = true;
#else
inline constexpr bool kSanitized = false;
#endif
#if defined(DNS_PROXY_EMULATED)
inline constexpr bool kEmulated = true;
#else
inline constexpr bool kEmulated = false;
#endif

// `full`, or a tenth of it with a sanitizer or in an emulator, which make the same work 5 to 15 times
// slower.
constexpr long Sized(long full) { return kSanitized || kEmulated ? full / 10 : full; }

}  // namespace support

#endif  // TESTS_SUPPORT_RUN_LENGTH_H_
