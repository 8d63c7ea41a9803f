#include "trace_reader/summary.h"

#include <algorithm>
#include <iterator>
#include <numeric>

#include "trace_reader/page_parts.h"

namespace {

// The most frequent texts, and what all others together come to.
Table FrequentTable(const char* title, const Frequent& texts, std::size_t count = 100,
                    char first = ' ') {
  Table table{title, {}, {}};
  std::uint64_t others = texts.total();
  for (const auto& [text, number] : texts.Most(count)) {
    table.rows.push_back({Printable(text, first), {number}});
    others -= number;
  }
  if (others > 0) table.rows.push_back({"(others)", {others}});
  if (texts.missed() > 0)
    table.title += " (each up to " + std::to_string(texts.missed()) + " more)";
  return table;
}

// Right in its column, and numbers as "1,234,567".
std::string Cell(std::string text) {
  for (std::size_t at = text.size(); at > 3 && text[0] <= '9';) text.insert(at -= 3, ",");
  return "  " + std::string(12 - std::min<std::size_t>(text.size(), 12), ' ') + text;
}

// In columns of a terminal, where only the first byte of a character counts.
std::string Padded(std::string text, std::size_t columns) {
  const auto wide =
      std::count_if(text.begin(), text.end(), [](char c) { return (c & 0xC0) != 0x80; });
  text.resize(text.size() + columns - std::min(columns, static_cast<std::size_t>(wide)), ' ');
  return text;
}

}  // namespace

std::string Printable(std::string_view text, char first) {
  std::string printable;
  for (const char c : text) {
    if (c >= first && c < '\x7f') {
      printable.append(c == '\\' ? 2 : 1, c);
    } else {
      const std::string code = std::to_string(1000 + static_cast<unsigned char>(c));
      printable += "\\" + code.substr(1);
    }
  }
  return printable;
}

std::string Text(const Table& table) {
  std::string text = table.title + "\n";
  for (const std::string& column : table.columns) text += Cell(column);
  if (!table.columns.empty()) text += '\n';
  for (const auto& [label, numbers] : table.rows) {
    for (const std::uint64_t number : numbers) text += Cell(std::to_string(number));
    text += "  " + label + "\n";
  }
  return text;
}

std::string Text(const Story& story) {
  return Padded(std::to_string(story.id), 5) + "  " + Padded(Printable(story.name), 30) + "  " +
         Padded(story.road.empty() ? "-" : story.road, 50) + "  " +
         std::string(kOutcomes[story.outcome]) + "\n";
}

void Summary::Add(const Story& story) {
  constexpr std::uint64_t kMostSteps = 200;
  outcomes_.Add(kOutcomes[story.outcome]);
  asked_.Add(story.name);
  if (story.outcome == kNoSuchName || story.outcome == kUnanswered) {
    (story.outcome == kNoSuchName ? missing_ : unanswered_).Add(story.name);
  }
  for (; story.number / step_ >= kMostSteps; step_ *= 2) {
    for (const auto& [at, outcomes] : std::exchange(course_, {})) {  // two become one
      for (std::size_t i = 0; i < outcomes.size(); ++i) course_[at / 2][i] += outcomes[i];
    }
  }
  ++course_[story.number / step_][story.outcome];

  auto& shown = shown_[story.outcome == kAnswered || story.outcome == kFromMap ? 1 : 0];
  shown.push_back(story);
  if (shown.size() > kShown) shown.pop_front();
}

std::vector<Table> Summary::Tables(const Counts& counts) const {
  Table outcomes = FrequentTable("Outcomes", outcomes_);
  outcomes.rows.insert(outcomes.rows.begin(), {"all queries", {asked_.total()}});
  Table servers{"Servers", {"asked", "answered", "no such name", "silent", "not sent"}, {}};
  for (auto [server, replies] : counts.servers) {
    std::vector<std::uint64_t> numbers;
    std::ranges::transform(servers.columns, std::back_inserter(numbers),
                           [&all = replies](const std::string& reply) { return all[reply]; });
    numbers[0] = std::accumulate(numbers.begin(), numbers.end(), std::uint64_t{0});
    servers.rows.emplace_back(server, numbers);
  }
  std::vector<Table> tables = {
      outcomes,
      servers,
      FrequentTable("Names asked most", asked_, 10, '!'),
      FrequentTable("Names nobody has", missing_, 10, '!'),
      FrequentTable("Names not answered", unanswered_, 10, '!'),
      FrequentTable("Ends of workers, and starts that failed", counts.ends),
      FrequentTable("Answers from another than the server that was asked, by sender",
                    counts.wrongSenders, 10),
      FrequentTable("Answers under an identifier that nobody waits for, by sender",
                    counts.unknownIdentifiers, 10),
      FrequentTable("The trace", counts.notes)};
  std::erase_if(tables, [](const Table& table) { return table.rows.empty(); });
  return tables;
}

std::string Summary::Page(const std::vector<Table>& tables) const {
  Table course{std::to_string(step_), {std::begin(kOutcomes), std::end(kOutcomes)}, {}};
  for (const auto& [at, outcomes] : course_) {
    course.rows.push_back({std::to_string(at * step_), {outcomes.begin(), outcomes.end()}});
  }
  std::string data = Text(course) + "\n";
  for (const Table& table : tables) data += Text(table) + "\n";
  for (const auto& shown : shown_) {
    for (const Story& story : shown) data += std::to_string(story.number) + "  " + Text(story);
  }
  std::string page(kPageBegin);
  for (const char c : data) c == '<' ? page += "&lt;" : c == '&' ? page += "&amp;" : page += c;
  return page + kPageEnd;
}
