// Random choices that are the same in every run, and with every compiler as long as no two of them
// are arguments of one call.
#ifndef TESTS_SERVICE_DICE_H_
#define TESTS_SERVICE_DICE_H_

#include <cstddef>
#include <random>
#include <string>

#include "tests/support/dns_message_builder.h"

namespace service {

class Dice {
 public:
  explicit Dice(unsigned int seed) : engine_(seed) {}

  // 0 to `sides` - 1.
  std::size_t Roll(std::size_t sides) { return engine_() % sides; }

  // True once in `sides` rolls.
  bool OnceIn(std::size_t sides) { return Roll(sides) == 0; }

  unsigned char Byte() { return static_cast<unsigned char>(engine_() & 0xFF); }
  unsigned short Number16() { return static_cast<unsigned short>(engine_() & 0xFFFF); }

  support::Bytes Bytes(std::size_t length) {
    support::Bytes bytes(length);
    for (unsigned char& byte : bytes) {
      byte = Byte();
    }
    return bytes;
  }

  // Letters of a label; in upper case now and then.
  std::string Label(std::size_t length) {
    std::string label(length, 'a');
    for (char& character : label) {
      character = static_cast<char>((OnceIn(8) ? 'A' : 'a') + static_cast<int>(Roll(26)));
    }
    return label;
  }

 private:
  std::mt19937 engine_;
};

}  // namespace service

#endif  // TESTS_SERVICE_DICE_H_
