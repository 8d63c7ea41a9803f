// What all stories of a trace come to: tables of counts, the same for the terminal and the page.
#ifndef TRACE_READER_SUMMARY_H_
#define TRACE_READER_SUMMARY_H_

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "trace_reader/frequent.h"
#include "trace_reader/stories.h"

struct Table {
  std::string title;
  std::vector<std::string> columns;  // of the numbers
  std::vector<std::pair<std::string, std::vector<std::uint64_t>>> rows;
};

class Summary {
 public:
  // Stories that are kept: so many of the newest that were answered, and of the others.
  static constexpr std::size_t kKept = 10000;

  void Add(const Story& story);

  // `names`: how many of the most frequent. Tables without rows are left out.
  std::vector<Table> Tables(const Counts& counts, std::size_t names) const;

  // Outcomes of queries in the order in which they came, `step` queries a row, 200 rows at the most.
  Table Course() const;

  const std::array<std::deque<Story>, 2>& kept() const { return kept_; }

 private:
  std::array<std::uint64_t, std::size(kOutcomes)> outcomes_ = {};
  Frequent asked_;
  Frequent missing_;     // no such name
  Frequent unanswered_;  // not answered
  std::vector<std::array<std::uint64_t, std::size(kOutcomes)>> course_;
  std::uint64_t step_ = 1;
  std::array<std::deque<Story>, 2> kept_;
};

// The tables as text for a terminal.
std::string Text(const std::vector<Table>& tables);

#endif  // TRACE_READER_SUMMARY_H_
