// What parent and child both see: what the guard says of datagrams (the child judges, the parent
// tells), and how the child does. It outlives each child: counts are those of all of them together,
// where nothing else is said.
#ifndef HOST_COMMON_SHARED_MEMORY_H_
#define HOST_COMMON_SHARED_MEMORY_H_

#include <netinet/in.h>

#include <array>
#include <atomic>
#include <cstdint>

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

struct SharedMemory {
  using Count = std::atomic<std::uint64_t>;

  bool guarded;  // set before there is a child

  // Written by the workers of the child.
  Count received;                                    // by this child; probes included
  std::array<Count, kVerdictNames.size()> verdicts;  // of kPasses: the queries that have passed
  Count optRecords;                                  // taken off queries

  // What becomes of the queries that have passed. Those that are in none of these wait, or their
  // service has ended meanwhile: the parent reckons them.
  Count staticNames;  // answered from the host map
  Count noSuchNames;  // reverse look-ups, and names that no server has
  struct Server {
    std::atomic<in_addr_t> address;  // network order; 0: the entry is free
    Count answers;                   // that were relayed
  };
  std::array<Server, 256> servers;  // in the order of their first answers, to the last child's
  Count strayAnswers;               // of servers, to no query that waits for them

  // The parent wants to hear of the next query. Set by the parent, taken back by the query thread.
  std::atomic<bool> wakeParent;

  // Why the child leaves; read after its end.
  char why[256];

  std::uint64_t Answered() const {
    std::uint64_t answered = staticNames + noSuchNames;
    for (const Server& server : servers) {
      answered += server.answers;
    }
    return answered;
  }

  Count& verdict(Verdict verdict) { return verdicts[static_cast<std::size_t>(verdict)]; }
};

#endif  // HOST_COMMON_SHARED_MEMORY_H_
