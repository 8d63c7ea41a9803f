#include "benchmarks/support/messages.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

namespace benchmarks {
namespace {

void Append16(Message& message, unsigned value) {
  message.push_back(static_cast<unsigned char>(value >> 8));
  message.push_back(static_cast<unsigned char>(value & 0xFF));
}

}  // namespace

Message MakeQuery(const std::string& name, std::uint16_t id) {
  Message message;
  Append16(message, id);
  Append16(message, 0x0100);  // RD
  Append16(message, 1);       // one question
  Append16(message, 0);
  Append16(message, 0);
  Append16(message, 0);
  for (std::size_t start = 0; start < name.size();) {
    const std::size_t dot = std::min(name.find('.', start), name.size());
    message.push_back(static_cast<unsigned char>(dot - start));
    message.insert(message.end(), name.begin() + static_cast<std::ptrdiff_t>(start),
                   name.begin() + static_cast<std::ptrdiff_t>(dot));
    start = dot + 1;
  }
  message.push_back(0);
  Append16(message, 1);  // A
  Append16(message, 1);  // IN
  return message;
}

int TurnIntoResponse(unsigned char* message, int length) {
  constexpr unsigned char kRecord[] = {
      0xC0, 0x0C,             // the name: that of the question
      0,    1,    0,   1,     // A, IN
      0,    0,    1,   0x2C,  // 300 seconds to live
      0,    4,    192, 0,    2, 7,
  };
  message[2] = 0x81;  // QR, RD
  message[3] = 0x80;  // RA, no error
  message[7] = 1;     // one answer
  std::memcpy(message + length, kRecord, sizeof(kRecord));
  return length + static_cast<int>(sizeof(kRecord));
}

Message MakeResponse(const Message& query) {
  Message message = query;
  message.resize(query.size() + 16);
  TurnIntoResponse(message.data(), static_cast<int>(query.size()));
  return message;
}

}  // namespace benchmarks
