// A rule that has to hold for every input.
#ifndef FUZZ_REQUIRE_H_
#define FUZZ_REQUIRE_H_

#include <cstdio>
#include <cstdlib>

namespace fuzz {

// Ends the process when `holds` is false, which fuzzer and replay report with the input.
inline void Require(bool holds, const char* rule) {
  if (!holds) {
    std::fprintf(stderr, "broken: %s\n", rule);
    std::abort();
  }
}

}  // namespace fuzz

#endif  // FUZZ_REQUIRE_H_
