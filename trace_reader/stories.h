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
inline constexpr std::string_view kOutcomes[] = {
    "answered by a server",         // a server's answer was passed on
    "answered from the map",        // the host map's was sent
    "no such name",                 // every method has been tried, or none was to be
    "not answered",                 // the service, or the trace, ends before the answer
    "not sent to the server",       // could not be; the service drops the query
    "answer not delivered",         // could not be sent to the application
    "dropped: identifier taken",    // by an older query, which was still waiting
    "answered before it was asked"  // by a forged or doubled answer
};
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

using Tally = std::map<std::string, std::uint64_t>;

// What is counted beside the stories.
struct Counts {
  std::uint64_t lines = 0;
  Tally notes;                           // what is known of the trace, in words
  Tally ends;                            // workers' ends and failed starts, by why
  std::map<std::string, Tally> servers;  // "answered", "no such name", "silent", "not sent"
  Frequent wrongSenders{1024};           // by their address
  Frequent unknownIdentifiers{1024};     // by who sent the answer
};

// How much of what follows a line is looked at.
inline constexpr std::size_t kLookAhead = 16384;

// Reads a whole trace. `next` gets how many bytes of what it gave the last time have been taken and
// gives what follows them: kLookAhead bytes or more, or the rest; nothing at the end. Each story goes
// to `ended` when it has ended, each line that is none of the program's to `strange`.
Counts ReadStories(const std::function<std::string_view(std::size_t taken)>& next,
                   const std::function<void(const Story&)>& ended,
                   const std::function<void(std::string_view)>& strange);

#endif  // TRACE_READER_STORIES_H_
