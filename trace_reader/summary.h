// What all stories of a trace come to: tables of counts, the same for the terminal and the page.
#ifndef TRACE_READER_SUMMARY_H_
#define TRACE_READER_SUMMARY_H_

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "trace_reader/frequent.h"
#include "trace_reader/stories.h"

// `text` as printable ASCII from `first` on: any other byte is written \DDD, decimal, as in a zone
// file. It cannot draw on a terminal nor begin a line, and holds no blank unless that is `first`.
std::string Printable(std::string_view text, char first = '!');

struct Table {
  std::string title;
  std::vector<std::string> columns;  // of the numbers; none if it is plain what they are
  std::vector<std::pair<std::string, std::vector<std::uint64_t>>> rows;
};

// For a terminal, and for the page, whose script reads it: numbers, then the row's label.
std::string Text(const Table& table);

// Identifier, name, road and outcome. Two blanks stand between them, and nowhere in them.
std::string Text(const Story& story);

class Summary {
 public:
  void Add(const Story& story);

  // The ten most frequent names, and so on. Tables without rows are left out.
  std::vector<Table> Tables(const Counts& counts) const;

  // Everything as one page that needs nothing else, with so many of the newest stories that were
  // answered, and of the others. What comes from the trace stands in it as text.
  std::string Page(const std::vector<Table>& tables) const;
  static constexpr std::size_t kShown = 10000;

 private:
  Frequent outcomes_;
  Frequent asked_;
  Frequent missing_;     // no such name
  Frequent unanswered_;  // not answered
  std::map<std::uint64_t, std::array<std::uint64_t, std::size(kOutcomes)>>
      course_;                  // of queries in the order in which they came
  std::uint64_t step_ = 1;      // so many for each element
  std::deque<Story> shown_[2];  // by whether they were answered
};

#endif  // TRACE_READER_SUMMARY_H_
