#include "benchmarks/support/messages.h"

#include <algorithm>
#include <cstddef>

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

Message MakeResponse(const Message& query) {
  Message message = query;
  message[2] = 0x81;          // QR, RD
  message[3] = 0x80;          // RA, no error
  message[7] = 1;             // one answer
  Append16(message, 0xC00C);  // the name: that of the question
  Append16(message, 1);       // A
  Append16(message, 1);       // IN
  Append16(message, 0);
  Append16(message, 300);  // seconds to live, 32 bits
  Append16(message, 4);
  Append16(message, 0xC000);  // 192.0.2.7
  Append16(message, 0x0207);
  return message;
}

}  // namespace benchmarks
