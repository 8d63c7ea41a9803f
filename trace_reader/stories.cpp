#include "trace_reader/stories.h"

#include <algorithm>
#include <array>
#include <deque>
#include <utility>
#include <variant>
#include <vector>

#include "trace_reader/pattern.h"

namespace {

constexpr char kMap[] = "map";
constexpr int kReversePosition = 159;
constexpr int kMethods = 256;
constexpr char kNotShown[] = "lines of queries that are not shown";
constexpr std::size_t kLongestName = 1023;
constexpr std::int64_t kMostReceived = kLongestName + 13;

// The size of the name that the query thread prints at the beginning of `text`, `longest` at most.
//
// A name may hold any bytes, line feeds and whole trace lines among them. The thread prints it
// twice, one after the other, and behind the second stands what no name can know: an identifier in
// the place of a line feed. The longest name for which that holds is taken, so that one which
// imitates its own second line is not believed.
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
    if (same > longest || window[same] != '\n' ||
        Match(again.substr(same), ", id:%i", {}, tail) == 0)
      continue;
    size = std::max(size, same);
    if (longest < size + second.size()) break;  // no room for one that imitates what was read
  }
  return size;
}

// Most lines carry the identifier of their query; for the others it is enough to know the few
// queries that they can be about. A query whose story has ended is forgotten, and identifiers have
// 16 bits: memory is bounded.
class Reader {
 public:
  Reader(const StoryTaker& ended, const LineTaker& strange) : ended_(ended), strange_(strange) {}

  // Takes the first line of `text`, or more if a name runs over several; returns how many bytes.
  std::size_t Take(std::string_view text) {
    text_ = text;
    if (!Handle()) {
      taken_ = FirstLine(text).size();
      Note("lines not understood (--strange)");
      strange_(text.substr(0, taken_));
    }
    const std::string_view taken = text.substr(0, taken_);
    lines_ += 1 + static_cast<std::uint64_t>(std::count(taken.begin(), taken.end(), '\n'));
    return std::min(taken_ + 1, text.size());
  }

  // The trace is over, or has a gap: what waits is not answered.
  void End() {
    while (!open_.empty()) Finish(open_.begin()->second, open_.begin()->second.outcome);
    Note("lines", std::exchange(lines_, 0));
  }

  Counts counts;

 private:
  struct Open : Story {
    int position = 0;  // of the method that is tried
    // What the next line about it can be: that a method is tried, at which position that stands,
    // what came of it; or, when the outcome is known, that the application could not be told.
    enum { kTries, kPositions, kAtMethod, kSettled } stage = kTries;
    bool unsent = false;  // an answer that is about to be told of
  };
  // A line of `function`, which is what stands in "func: F(line:N)", or without that. Where it
  // stands in the source plays no part: the numbers move. It tells nothing that others do not, has
  // no identifier or one of no query, is about a query, or says why a worker or a start ends.
  using AboutNone = void (Reader::*)(const Fields&);
  using AboutQuery = void (Reader::*)(Open&, const Fields&);
  struct Rule {
    std::string_view function, pattern;
    std::variant<std::monostate, AboutNone, AboutQuery, const char*> meaning = {};
  };

  bool Handle() {
#include "trace_reader/lines.inc"
    std::string_view rest = text_;
    std::string_view function;
    if (rest.starts_with("func: ")) {
      function = rest.substr(6, FirstLine(rest).find("(line:") - 6);
      rest.remove_prefix(std::min(rest.size(), 6 + function.size() + 6));
      std::int64_t place = 0;
      if (!TakeNumber(rest, place) || !rest.starts_with(')')) return false;
      rest.remove_prefix(1);
    }
    for (const Rule& rule : kRules) {
      Fields line;
      if (rule.function != function) continue;
      const std::size_t size = Match(rest, rule.pattern, longNames_, line);
      if (size == 0) continue;
      taken_ = text_.size() - rest.size() + size;
      if (const auto* const handle = std::get_if<AboutNone>(&rule.meaning)) (this->**handle)(line);
      if (const auto* const why = std::get_if<const char*>(&rule.meaning)) counts.ends.Add(*why);
      if (const auto* const tell = std::get_if<AboutQuery>(&rule.meaning)) {
        Open* const story = Find(line.id);
        const bool shown = story != nullptr && (line.name.empty() || line.name == story->name);
        shown ? (this->**tell)(*story, line) : Note(kNotShown);
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
    if (methods_.size() >= kMethods) return;
    methods_.emplace_back(line.addresses[0].empty() ? "255.255.255.255" : line.addresses[0]);
  }
  void Lost(const Fields& line) {
    End();
    Note("lines that the host has lost", static_cast<std::uint64_t>(line.numbers[0]));
  }

  // The query thread.
  void QueryPass(const Fields& /*line*/) {
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
    if (asked_.size() == line.name.size()) return;
    Note("names with line feeds");
    longNames_.push_front(asked_);
    longNames_.resize(std::min<std::size_t>(longNames_.size(), 512));
  }
  void Request(const Fields& line) {
    const bool known = asked_.empty() || asked_ == line.name;
    if (!known || line.name.size() > kLongestName) return Note(kNotShown);
    asked_.clear();
    Open story;
    story.number = queries_++;
    story.id = static_cast<std::uint16_t>(line.id);
    story.name = line.name;
    if (story.name.find(".in-addr.arpa") != std::string::npos) story.position = kReversePosition;
    Open* const older = Find(line.id);
    if (older != nullptr && older->stage != Open::kSettled) {  // the service goes on with that one
      older->stage = Open::kTries;
      story.outcome = kDropped;
      return ended_(story);
    }
    if (older != nullptr) Finish(*older, older->outcome);
    open_.emplace(line.id, std::move(story));
  }

  // The answer thread.
  void Unknown(const Fields& line) { counts.unknownIdentifiers.Add(line.addresses[0]); }
  void WrongSender(const Fields& line) { counts.wrongSenders.Add(line.addresses[0]); }
  void NoRecords(Open& story, const Fields& line) {
    Replied(story, std::string(line.addresses[0]), "no such name");
    Advance(story);
  }
  void Relayed(Open& story, const Fields& line) {
    Replied(story, std::string(line.addresses[0]), "answered");
    Finish(story, story.unsent ? kUndelivered : kAnswered);
  }

  // Either of them.
  void Try(Open& story, const Fields& line) {
    if (story.stage == Open::kAtMethod) {  // once more: that was the host map, without the name
      Method(story.position) = kMap;
      Walk(story, kMap);
      Advance(story);
    }
    const Open* const other = Find(tried_[0]);
    tried_[other != nullptr && other->stage == Open::kPositions ? 1 : 0] = line.id;
    story.stage = Open::kPositions;
  }
  // The line has no identifier, but each thread's next position is known.
  void Position(const Fields& line) {
    for (const std::int64_t id : tried_) {
      Open* const story = Find(id);
      const bool next = story != nullptr && story->stage == Open::kPositions;
      if (!next || story->position != line.numbers[0]) continue;
      story->stage = Open::kAtMethod;
      if (story->position < (line.numbers[1] & 0xFFFF)) return;
      const bool reverse = story->position == kReversePosition;
      if (story->road.empty()) Walk(*story, reverse ? "reverse look-up" : "no method");
      return Settle(*story, kNoSuchName);
    }
    Note(kNotShown);
  }
  void FromMap(Open& story, const Fields& line) {
    Method(story.position) = kMap;
    Walk(story, "map answered " + std::string(line.addresses[0]));
    Settle(story, kFromMap);
  }
  void FromMapUnsent(const Fields& line) {
    for (const std::int64_t id : settled_) {
      Open* const story = Find(id);
      if (story != nullptr && story->outcome == kFromMap) return Unsent(*story, line);
    }
    Note(kNotShown);
  }
  void Unsent(Open& story, const Fields& /*line*/) {
    story.unsent = true;
    story.outcome = kUndelivered;
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
    story.stage = Open::kTries;
    story.position = (story.position + 1) % kMethods;
  }
  void Walk(Open& story, const std::string& step) {
    if (story.road.size() > 1000) return;
    story.road.append(story.road.empty() ? "" : " → ").append(step);
  }
  void Replied(Open& story, const std::string& server, const char* reply) {
    const bool room = counts.servers.size() < 1000 || counts.servers.contains(server);
    ++counts.servers[room ? server : "others"][reply];
    Walk(story, server + " " + reply);
    Method(story.position) = server;
  }
  // Ended, but for the line that says so when the application could not be told. That comes soon.
  void Settle(Open& story, Outcome outcome) {
    story.outcome = outcome;
    story.stage = Open::kSettled;
    settled_.push_front(story.id);
    if (settled_.size() <= 16) return;
    Open* const oldest = Find(settled_.back());
    settled_.pop_back();
    if (oldest != nullptr && oldest->stage == Open::kSettled) Finish(*oldest, oldest->outcome);
  }
  void Finish(Open& story, Outcome outcome) {
    story.outcome = outcome;
    const bool asked = story.stage == Open::kAtMethod && Method(story.position) != kMap;
    if (asked && outcome == kUnanswered)
      Replied(story, std::string(Method(story.position)), "silent");
    ended_(story);
    open_.erase(open_.find(story.id));
  }
  // What stands at a position, as far as the trace has told until now.
  std::string& Method(int position) {
    const auto at = static_cast<std::size_t>(position);
    methods_.resize(std::max(methods_.size(), at + 1));
    if (methods_[at].empty()) methods_[at] = "position " + std::to_string(position);
    return methods_[at];
  }
  void Note(const char* what, std::uint64_t times = 1) { counts.notes.Add(what, times); }

  const StoryTaker& ended_;
  const LineTaker& strange_;
  std::string_view text_;  // what is read, from the line on
  std::size_t taken_ = 0;  // bytes of it
  std::uint64_t queries_ = 0, lines_ = 0;
  std::map<std::int64_t, Open> open_;
  std::array<std::int64_t, 2> tried_ = {-1, -1};  // the last by each thread
  std::deque<std::int64_t> settled_;              // the newest first
  std::vector<std::string> methods_;              // "map" and the servers
  std::int64_t received_ = kMostReceived;         // bytes of the query that is read, if known
  std::string asked_;                             // its name; empty: none is read
  std::deque<std::string> longNames_;             // the newest names with line feeds
};

}  // namespace

Counts ReadStories(const Source& next, const StoryTaker& ended, const LineTaker& strange) {
  Reader reader(ended, strange);
  for (std::string_view text = next(0); !text.empty();) text = next(reader.Take(text));
  reader.End();
  return std::move(reader.counts);
}
