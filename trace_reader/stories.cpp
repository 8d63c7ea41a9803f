#include "trace_reader/stories.h"

#include <algorithm>
#include <deque>
#include <utility>
#include <variant>
#include <vector>

#include "trace_reader/pattern.h"

namespace {

constexpr std::string_view kDispatch = "TryNextDNSQueryMethod";
constexpr std::string_view kQuery = "RecvAndProcessPacketsFromLocalApps";
constexpr std::string_view kAnswer = "RecvAndProcessPacketsFromDNSServer";
constexpr std::string_view kQueryThread = "thread_query";
constexpr std::string_view kAnswerThread = "thread_answer";
constexpr std::string_view kStart = "StartDnsSrv";
constexpr char kMap[] = "map";
constexpr int kReversePosition = 159;
constexpr int kMethods = 256;
constexpr std::size_t kLongestAddress = 45;

// The size of the name that the query thread prints at the beginning of `text`, `longest` at most.
//
// A name may hold any bytes, line feeds and whole trace lines among them. The thread prints it twice,
// one after the other, and behind the second stands what no name can know: an identifier in the place
// of a line feed. The longest name for which that holds is taken, so that one which imitates its own
// second line is not believed.
std::size_t SizeOfNewName(std::string_view text, std::size_t longest) {
  constexpr std::string_view kSecond = ")FromAPP: the request domain is ";
  std::size_t size = FirstLine(text).size();
  const std::string_view window = text.substr(0, kLookAhead);
  const std::string second = std::string(kSecond).append(text.substr(0, size));
  for (std::size_t at = window.find(second, size); at != std::string_view::npos;
       at = window.find(second, at + 1)) {
    const std::string_view again = window.substr(at + kSecond.size());
    const auto same = static_cast<std::size_t>(
        std::mismatch(again.begin(), again.end(), window.begin()).first - again.begin());
    Fields tail;
    if (same <= longest && window[same] == '\n' &&
        Match(again.substr(same), ", id:%i", {}, tail) > 0) {
      size = std::max(size, same);
      if (longest < size + second.size()) {
        break;  // no room for a name that imitates what was just read
      }
    }
  }
  return size;
}

// Most lines carry the identifier of their query, or follow one that does in their thread's order. A
// query whose story has ended is forgotten, and identifiers have 16 bits: memory is bounded.
class Reader {
 public:
  Reader(const std::function<void(const Story&)>& ended,
         const std::function<void(std::string_view)>& strange)
      : ended_(ended), strange_(strange) {}

  // Takes the first line of `text`, or more if a name runs over several; returns how many bytes.
  std::size_t Take(std::string_view text) {
    text_ = text;
    taken_ = 0;
    if (!Handle()) {
      taken_ = FirstLine(text).size();
      Note("lines not understood (--strange)");
      strange_(text.substr(0, taken_));
    }
    counts_.lines += static_cast<std::uint64_t>(
        1 + std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(taken_), '\n'));
    return std::min(taken_ + 1, text.size());
  }

  // The trace is over, or has a gap: what waits is not answered.
  void End() {
    Leave(query_);
    Leave(answer_);
    while (!open_.empty()) {
      Finish(open_.begin()->second, kUnanswered);
    }
  }

  const Counts& counts() const { return counts_; }

 private:
  struct Open : Story {
    int position = 0;      // of the method that is tried
    bool tried = false;    // the trace shows that position
    bool settled = false;  // the outcome is known; its thread may have one more line about it
    bool unsent = false;   // its answer could not be passed on
  };
  // How far a thread's dispatch has come, and with which query.
  struct Worker {
    enum { kIdle, kTries, kPositions, kAtMethod } stage = kIdle;
    std::int64_t id = 0;
  };
  // A line of `function`, which is what stands in "func: F(line:N)", or without that. Where it stands
  // in the source plays no part: the numbers move.
  struct Rule {
    std::string_view function;
    std::string_view pattern;
    std::variant<std::monostate,                   // it tells nothing that others do not
                 void (Reader::*)(const Fields&),  // it has no identifier, or one of no query
                 void (Reader::*)(Open&, const Fields&),  // it is about a query
                 const char*>                             // a worker or a start ends: why
        meaning = {};
  };

  bool Handle() {
    static constexpr Rule kRules[] = {
#include "trace_reader/lines.inc"
    };
    std::string_view rest = text_;
    std::string_view function;
    if (constexpr std::string_view kBefore = "func: "; rest.starts_with(kBefore)) {
      constexpr std::string_view kBehind = "(line:";
      rest.remove_prefix(kBefore.size());
      function = rest.substr(0, FirstLine(rest).find(kBehind));
      rest.remove_prefix(std::min(rest.size(), function.size() + kBehind.size()));
      std::int64_t place = 0;
      if (!TakeNumber(rest, place) || !rest.starts_with(')')) {
        return false;
      }
      rest.remove_prefix(1);
    }
    for (const Rule& rule : kRules) {
      Fields line;
      const std::size_t size =
          rule.function == function ? Match(rest, rule.pattern, longNames_, line) : 0;
      if (size == 0) {
        continue;
      }
      taken_ = text_.size() - rest.size() + size;
      if (const auto* const handle = std::get_if<1>(&rule.meaning)) {
        (this->**handle)(line);
      } else if (const auto* const tell = std::get_if<2>(&rule.meaning)) {
        Open* const story = Find(line.id);
        const bool shown = story != nullptr && (line.name.empty() || line.name == story->name);
        shown ? (this->**tell)(*story, line) : Note(kNotShown);
      } else if (const auto* const why = std::get_if<3>(&rule.meaning)) {
        ++counts_.ends[*why];
      }
      return true;
    }
    return false;
  }

  // The start.
  void Bound(const Fields& /*line*/) {
    End();
    methods_.clear();
    Note("starts of the service");
  }
  void AddMap(const Fields& /*line*/) { methods_.resize(1, kMap); }
  void AddServer(const Fields& line) {
    methods_.push_back(Printable(line.name.substr(0, kLongestAddress)));
    methods_.resize(std::min<std::size_t>(methods_.size(), kMethods));
  }
  void Lost(const Fields& line) {
    End();
    Note("lines that the host has lost", static_cast<std::uint64_t>(line.numbers[0]));
  }

  // The query thread.
  void QueryPass(const Fields& /*line*/) {
    Leave(query_);
    received_ = kMostReceived;
    asked_.clear();
  }
  void Received(const Fields& line) { received_ = std::min(line.numbers[0], kMostReceived); }
  void Name(const Fields& line) {
    // What was received is the name, 12 bytes of header and a zero byte or a length at the least.
    const auto longest = static_cast<std::size_t>(std::max<std::int64_t>(received_ - 13, 0));
    const std::string_view text = text_.substr(taken_ - line.name.size());
    asked_ = text.substr(0, SizeOfNewName(text, longest));
    taken_ += asked_.size() - line.name.size();
    if (asked_.size() != line.name.size()) {
      constexpr std::size_t kMost = 64;
      Note("names with line feeds");
      longNames_.push_front(asked_);
      longNames_.resize(std::min(longNames_.size(), kMost));
    }
  }
  void Request(const Fields& line) {
    if (line.name.size() > kLongestName || (!asked_.empty() && asked_ != line.name)) {
      return Note(kNotShown);
    }
    asked_.clear();
    Open story;
    story.number = queries_++;
    story.id = static_cast<std::uint16_t>(line.id);
    story.name = line.name;
    const bool reverse = story.name.find(".in-addr.arpa") != std::string::npos;
    story.position = reverse ? kReversePosition : 0;
    query_ = {Worker::kTries, line.id};
    Open* const older = Find(line.id);
    if (older != nullptr && older->settled) {
      Finish(*older, older->outcome);
    } else if (older != nullptr) {  // which the service goes on with, at its position
      story.outcome = kDropped;
      return ended_(story);
    }
    open_.emplace(line.id, std::move(story));
  }

  // The answer thread.
  void AnswerPass(const Fields& /*line*/) { Leave(answer_); }
  void Unknown(const Fields& line) { counts_.unknownIdentifiers.Add(line.addresses[0]); }
  void WrongSender(const Fields& line) { counts_.wrongSenders.Add(line.addresses[0]); }
  void NoRecords(Open& story, const Fields& line) {
    Replied(story, std::string(line.addresses[0]), "no such name");
    answer_ = {Worker::kTries, story.id};
    Advance(story);
  }
  void Relayed(Open& story, const Fields& line) {
    Replied(story, std::string(line.addresses[0]), "answered");
    Finish(story, story.unsent ? kUndelivered : kAnswered);
  }

  // Either of them.
  void Try(const Fields& line) {
    for (Worker* const worker : {&answer_, &query_}) {
      Open* const story = worker->id == line.id ? Find(line.id) : nullptr;
      if (story != nullptr && worker->stage == Worker::kAtMethod) {
        // Once more in one pass: the method was the host map, which does not know the name.
        Method(story->position) = kMap;
        Walk(*story, kMap);
        Advance(*story);
      } else if (story == nullptr || worker->stage != Worker::kTries) {
        continue;
      }
      worker->stage = Worker::kPositions;
      return;
    }
    Note(kNotShown);
  }
  // The line has no identifier, but each thread's next position is known.
  void Position(const Fields& line) {
    for (Worker* const worker : {&answer_, &query_}) {
      Open* const story = worker->stage == Worker::kPositions ? Find(worker->id) : nullptr;
      if (story == nullptr || story->position != line.numbers[0]) {
        continue;
      }
      worker->stage = Worker::kAtMethod;
      story->tried = story->position < (line.numbers[1] & 0xFFFF);
      if (!story->tried) {
        if (story->road.empty()) {
          Walk(*story, story->position == kReversePosition ? "reverse look-up" : "no method");
        }
        Settle(*story, kNoSuchName);
      }
      return;
    }
    Note(kNotShown);
  }
  void FromMap(Open& story, const Fields& line) {
    Method(story.position) = kMap;
    Walk(story, "map answered " + std::string(line.addresses[0]));
    Settle(story, kFromMap);
  }
  void FromMapUnsent(const Fields& line) {
    Open* const story = Find(query_.id);
    story == nullptr ? Note(kNotShown) : Unsent(*story, line);
  }
  void Unsent(Open& story, const Fields& /*line*/) {
    story.unsent = true;
    story.outcome = story.settled ? kUndelivered : story.outcome;
  }
  void NotForwarded(Open& story, const Fields& /*line*/) {
    Replied(story, std::string(Method(story.position)), "not sent");
    Finish(story, kNotSent);
  }
  void Gone(Open& story, const Fields& /*line*/) { Finish(story, kGone); }

  // The queries.
  Open* Find(std::int64_t id) {
    const auto found = open_.find(id);
    return found == open_.end() ? nullptr : &found->second;
  }
  void Advance(Open& story) {
    story.tried = false;
    story.position = (story.position + 1) % kMethods;
  }
  void Walk(Open& story, const std::string& step) {
    constexpr std::size_t kLongestRoad = 1000;
    if (story.road.size() < kLongestRoad) {
      story.road.append(story.road.empty() ? "" : " → ").append(step);
    }
  }
  void Replied(Open& story, const std::string& server, const char* reply) {
    constexpr std::size_t kMostServers = 1000;
    const bool room = counts_.servers.size() < kMostServers || counts_.servers.contains(server);
    ++counts_.servers[room ? server : "others"][reply];
    Walk(story, server + " " + reply);
    Method(story.position) = server;
  }
  void Settle(Open& story, Outcome outcome) {
    story.outcome = outcome;
    story.settled = true;
  }
  void Finish(Open& story, Outcome outcome) {
    story.outcome = outcome;
    if (outcome == kUnanswered && story.tried && Method(story.position) != kMap) {
      Replied(story, std::string(Method(story.position)), "silent");
    }
    ended_(story);
    open_.erase(open_.find(story.id));
  }
  // The thread has done with its query.
  void Leave(Worker& worker) {
    Open* const story = worker.stage == Worker::kIdle ? nullptr : Find(worker.id);
    worker.stage = Worker::kIdle;
    if (story != nullptr && story->settled) {
      Finish(*story, story->outcome);
    }
  }
  // What stands at a position, as far as the trace has told until now.
  std::string& Method(int position) {
    const auto at = static_cast<std::size_t>(position);
    methods_.resize(std::max(methods_.size(), at + 1));
    if (methods_[at].empty()) {
      methods_[at] = "position " + std::to_string(position);
    }
    return methods_[at];
  }
  void Note(const char* what, std::uint64_t times = 1) { counts_.notes[what] += times; }

  static constexpr char kNotShown[] = "lines of queries that are not shown";
  static constexpr std::size_t kLongestName = 1023;
  static constexpr std::int64_t kMostReceived = kLongestName + 13;

  const std::function<void(const Story&)>& ended_;
  const std::function<void(std::string_view)>& strange_;
  Counts counts_;
  std::string_view text_;  // what is read, from the line on
  std::size_t taken_ = 0;  // bytes of it
  std::uint64_t queries_ = 0;
  std::map<std::int64_t, Open> open_;
  std::vector<std::string> methods_;  // "map" and the servers
  Worker query_;
  Worker answer_;
  std::int64_t received_ = kMostReceived;  // bytes of the query that is read, if known
  std::string asked_;                      // its name; empty: none is read
  std::deque<std::string> longNames_;      // the newest names with line feeds
};

}  // namespace

Counts ReadStories(const std::function<std::string_view(std::size_t taken)>& next,
                   const std::function<void(const Story&)>& ended,
                   const std::function<void(std::string_view)>& strange) {
  Reader reader(ended, strange);
  for (std::string_view text = next(0); !text.empty();) {
    text = next(reader.Take(text));
  }
  reader.End();
  return reader.counts();
}
