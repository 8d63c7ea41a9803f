#include "fuzz/trace_text.h"

#include <cstdlib>
#include <string>

#include "fuzz/require.h"

namespace fuzz {

TraceText::TraceText() : stream_(open_memstream(&text_, &size_)), standardOutput_(stdout) {
  Require(stream_ != nullptr, "memory for the trace");
  stdout = stream_;
}

TraceText::~TraceText() {
  GiveBack();
  std::free(text_);
}

support::TraceLines TraceText::Stop() {
  GiveBack();
  return support::SplitLines(std::string(text_, size_));
}

void TraceText::GiveBack() {
  if (stream_ != nullptr) {
    stdout = standardOutput_;
    std::fclose(stream_);
    stream_ = nullptr;
  }
}

void RequireTrace(const support::TraceLines& expected, const support::TraceLines& actual) {
  bool same = expected.size() == actual.size();
  for (std::size_t i = 0; same && i < expected.size(); ++i) {
    // The first for texts that hold the placeholder themselves, as fuzzers find out.
    same = expected[i] == actual[i] || support::TraceLineMatches(expected[i], actual[i]);
  }
  if (!same) {
    for (const std::string& line : expected) {
      std::fprintf(stderr, "expected: %s\n", line.c_str());
    }
    for (const std::string& line : actual) {
      std::fprintf(stderr, "actual:   %s\n", line.c_str());
    }
  }
  Require(same, "the trace is what the rules say");
}

}  // namespace fuzz
