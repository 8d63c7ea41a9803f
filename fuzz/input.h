// A fuzzer's input, taken from the front. What is not there any more reads as zero.
#ifndef FUZZ_INPUT_H_
#define FUZZ_INPUT_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "tests/support/dns_message_builder.h"

namespace fuzz {

using support::Bytes;

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : next_(data), end_(data + size) {}

  unsigned char Byte() { return next_ == end_ ? 0 : *next_++; }

  unsigned short Number16() {
    const int high = Byte();
    return static_cast<unsigned short>(high << 8 | Byte());
  }

  // Up to `most` bytes.
  Bytes Take(std::size_t most) {
    const auto count =
        static_cast<std::ptrdiff_t>(std::min(most, static_cast<std::size_t>(end_ - next_)));
    Bytes taken(next_, next_ + count);
    next_ += count;
    return taken;
  }

  Bytes Rest() { return Take(static_cast<std::size_t>(end_ - next_)); }

 private:
  const std::uint8_t* next_;
  const std::uint8_t* end_;
};

}  // namespace fuzz

#endif  // FUZZ_INPUT_H_
