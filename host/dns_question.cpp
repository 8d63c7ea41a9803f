#include "host/dns_question.h"

#include <initializer_list>
#include <sstream>

namespace {

constexpr std::size_t kHeaderSize = 12;
constexpr unsigned char kResponseBit = 0x80;          // QR, in the header's third byte
constexpr unsigned char kRecursionDesiredBit = 0x01;  // RD, there too
constexpr std::uint16_t kClassInternet = 1;

void Append(std::vector<unsigned char>& message, std::uint16_t value) {
  message.push_back(static_cast<unsigned char>(value >> 8));
  message.push_back(static_cast<unsigned char>(value & 0xFF));
}

}  // namespace

std::vector<unsigned char> MakeQuestion(std::uint16_t id, const std::string& name,
                                        std::uint16_t type) {
  std::vector<unsigned char> message;
  Append(message, id);
  message.push_back(kRecursionDesiredBit);
  message.push_back(0);
  for (const std::uint16_t count : std::initializer_list<std::uint16_t>{1, 0, 0, 0}) {
    Append(message, count);
  }
  std::istringstream labels(name);
  for (std::string label; std::getline(labels, label, '.');) {
    message.push_back(static_cast<unsigned char>(label.size()));
    message.insert(message.end(), label.begin(), label.end());
  }
  message.push_back(0);
  Append(message, type);
  Append(message, kClassInternet);
  return message;
}

bool ReadResponse(const unsigned char* message, std::size_t size, std::uint16_t& id) {
  if (size < kHeaderSize || (message[2] & kResponseBit) == 0) {
    return false;
  }
  id = static_cast<std::uint16_t>((message[0] << 8) | message[1]);
  return true;
}
