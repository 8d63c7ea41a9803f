// How much a stress test does: sanitizers make the same work 5 to 15 times slower.
#ifndef TESTS_STRESS_SIZE_OF_RUNS_H_
#define TESTS_STRESS_SIZE_OF_RUNS_H_

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
#define STRESS_UNDER_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer) || __has_feature(address_sanitizer)
#define STRESS_UNDER_SANITIZER 1
#endif
#endif

namespace stress {

#if defined(STRESS_UNDER_SANITIZER)
inline constexpr bool kUnderSanitizer = true;
#else
inline constexpr bool kUnderSanitizer = false;
#endif

// `full` without a sanitizer, a tenth of it with one.
constexpr long Sized(long full) { return kUnderSanitizer ? full / 10 : full; }

}  // namespace stress

#endif  // TESTS_STRESS_SIZE_OF_RUNS_H_
