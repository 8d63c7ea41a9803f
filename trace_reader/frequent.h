// Counts texts in bounded memory and keeps those that come most often.
#ifndef TRACE_READER_FREQUENT_H_
#define TRACE_READER_FREQUENT_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>
#include <vector>

// Exact while there are no more than twice `kept` different texts. Beyond that the rarer half goes,
// and every count that stays is lowered by that of the most frequent text that went. So a count is
// never too high, and too low by missed() at the most; a text that came more often is there.
class Frequent {
 public:
  using Count = std::pair<std::string, std::uint64_t>;

  explicit Frequent(std::size_t kept = 8192) : kept_(kept) {}

  void Add(std::string_view text, std::uint64_t times = 1) {
    total_ += times;
    counts_[std::string(text)] += times;
    if (counts_.size() > 2 * kept_) {
      const std::vector<Count> most = Most(kept_ + 1);
      const std::uint64_t gone = most.back().second;
      missed_ += gone;
      counts_.clear();
      for (const auto& [stays, count] : most) {
        if (count > gone) counts_.emplace(stays, count - gone);
      }
    }
  }

  // The `count` most frequent texts, the most frequent first.
  std::vector<Count> Most(std::size_t count) const {
    std::vector<Count> all(counts_.begin(), counts_.end());
    std::ranges::sort(all, [](const Count& one, const Count& other) {
      return std::tie(other.second, one.first) < std::tie(one.second, other.first);
    });
    all.resize(std::min(count, all.size()));
    return all;
  }

  std::uint64_t total() const { return total_; }
  std::uint64_t missed() const { return missed_; }

 private:
  std::size_t kept_;
  std::unordered_map<std::string, std::uint64_t> counts_;
  std::uint64_t total_ = 0;
  std::uint64_t missed_ = 0;
};

#endif  // TRACE_READER_FREQUENT_H_
