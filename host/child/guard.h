// Which datagrams may reach the service. Functions of bytes, without sockets.
//
// A datagram that a handler of the service rejects ends the worker that runs it, by design. The
// judgement here is the handlers' own, made before they see the datagram: JudgeQuery passes exactly
// what RecvAndProcessPacketsFromLocalApps accepts. JudgeAnswer keeps away what ends the answer thread
// and, beyond that, answers to another question than the one that was asked.
#ifndef HOST_CHILD_GUARD_H_
#define HOST_CHILD_GUARD_H_

#include <array>
#include <cstddef>
#include <span>
#include <vector>

// A datagram as it was received: up to 8,192 bytes, cut there if it was longer.
using Datagram = std::span<const unsigned char>;

// A new reason is one more of these, its name, and a condition in one of the two functions.
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

// May a datagram of an application pass?
Verdict JudgeQuery(Datagram query);

// May a datagram of a server pass? `pending` is the query as it was forwarded under the identifier
// of `answer`, whoever that came from; empty if no query is pending there.
Verdict JudgeAnswer(Datagram answer, Datagram pending);

// What the sender of a query that is kept away is told: FORMERR, or REFUSED and the question for the
// root, without records. Empty for what must not be answered: fewer than 12 bytes, and responses,
// lest two programs answer each other for ever.
std::vector<unsigned char> ErrorReply(Datagram query, Verdict verdict);

// The size of `query` without its OPT record (RFC 6891), if one without fault is all that stands
// behind the one question; the whole size if not. The count in the header is the caller's to change.
std::size_t SizeWithoutOpt(Datagram query);

#endif  // HOST_CHILD_GUARD_H_
