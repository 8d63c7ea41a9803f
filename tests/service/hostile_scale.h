// How much of hostile traffic a test sends.
#ifndef TESTS_SERVICE_HOSTILE_SCALE_H_
#define TESTS_SERVICE_HOSTILE_SCALE_H_

namespace service {

// Sanitizers make the service five to fifteen times slower; their tests send that much less.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
inline constexpr int kSlowdown = 10;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
inline constexpr int kSlowdown = 10;
#else
inline constexpr int kSlowdown = 1;
#endif
#else
inline constexpr int kSlowdown = 1;
#endif

}  // namespace service

#endif  // TESTS_SERVICE_HOSTILE_SCALE_H_
