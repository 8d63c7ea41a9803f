// What became of each query: the lines of the service's two threads, untangled.
#ifndef TRACE_READER_STORIES_H_
#define TRACE_READER_STORIES_H_

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

#include "trace_reader/frequent.h"

// How a query ends, in the words in which it is told.
//
//   answered          a server's answer was passed on, or the host map's was sent
//   no such name      every method has been tried, or none was to be
//   not answered      the service, or the trace, ends before the answer
//   not sent          could not be; the service drops the query
//   not delivered     could not be sent to the application
//   dropped           under the identifier of an older query, which was still waiting
//   before            by a forged or doubled answer
inline constexpr std::string_view kOutcomes[] = {"answered by a server",
                                                 "answered from the map",
                                                 "no such name",
                                                 "not answered",
                                                 "not sent to the server",
                                                 "answer not delivered",
                                                 "dropped: identifier taken",
                                                 "answered before it was asked"};
enum Outcome {
  kAnswered,
  kFromMap,
  kNoSuchName,
  kUnanswered,
  kNotSent,
  kUndelivered,
  kDropped,
  kGone
};

struct Story {
  std::uint64_t number = 0;  // of the query, from 0 on
  std::uint16_t id = 0;
  Outcome outcome = kUnanswered;
  std::string name;  // as it was asked for: any bytes but zero
  std::string road;  // "map → 192.0.2.1 no such name → 192.0.2.2 answered"
};

// What is counted beside the stories.
struct Counts {
  Frequent notes;  // what is known of the trace, in words
  Frequent ends;   // workers' ends and failed starts, by why
  // By how it went: "answered", "no such name", "silent", "not sent".
  std::map<std::string, std::map<std::string, std::uint64_t>> servers;
  Frequent wrongSenders{1024};        // by their address
  Frequent unknownIdentifiers{1024};  // by who sent the answer
};

// How much of what follows a line is looked at: a thread may print hundreds of lines between two of
// the other.
inline constexpr std::size_t kLookAhead = 262144;

// Reads a whole trace. `next` gets how many bytes of what it gave the last time have been taken and
// gives what follows them: kLookAhead bytes or more, or the rest; nothing at the end. Each story
// goes to `ended` when it has ended, each line that is none of the program's to `strange`.
using Source = std::function<std::string_view(std::size_t taken)>;
using StoryTaker = std::function<void(const Story&)>;
using LineTaker = std::function<void(std::string_view)>;
Counts ReadStories(const Source& next, const StoryTaker& ended, const LineTaker& strange);

#endif  // TRACE_READER_STORIES_H_
