// What the guard says of a datagram: the child judges, the parent tells.
#ifndef HOST_COMMON_VERDICT_H_
#define HOST_COMMON_VERDICT_H_

#include <array>
#include <cstddef>

// A new reason is one more of these, its name, and a condition in child/guard.cpp.
enum class Verdict : unsigned char {
  kPasses,
  kShortQuery,      // below the 12 bytes of a header
  kQuestionCount,   // other than 1
  kRoot,            // asks for the root
  kUnreadableName,  // a name that the service reads as empty without its being the root
  kShortAnswer,     // below 12 bytes, from whomever
  kOtherQuestion,   // an answer with records for something else than was asked
};

// What status and log call them, in the order of the verdicts.
inline constexpr std::array<const char*, 7> kVerdictNames = {
    "passed",          "short_query",  "question_count", "root",
    "unreadable_name", "short_answer", "other_question",
};

inline const char* Name(Verdict verdict) {
  // cppcheck-suppress CastIntegerToAddressAtReturn  // it takes the texts for numbers
  return kVerdictNames[static_cast<std::size_t>(verdict)];
}

#endif  // HOST_COMMON_VERDICT_H_
