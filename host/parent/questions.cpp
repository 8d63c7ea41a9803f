#include "host/parent/questions.h"

#include <fcntl.h>
#include <sys/socket.h>

#include "host/common/failure.h"
#include "host/common/port.h"

namespace {

constexpr int kReceivedAtOnce = 64;
constexpr ssize_t kHeaderSize = 12;
constexpr unsigned char kResponseBit = 0x80;  // QR, in the header's third byte

}  // namespace

std::vector<unsigned char> MakeQuestion(std::uint16_t id) {
  const auto high = static_cast<unsigned char>(id >> 8);
  const auto low = static_cast<unsigned char>(id & 0xFF);
  return {high, low, 1, 0, 0, 1, 0, 0, 0, 0, 0, 0,  // recursion desired; one question, no record
          0,    0,   2, 0, 1};                      // the root, NS, Internet
}

int OpenQuestionSocket() {
  const int sock = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  if (sock == -1 || fcntl(sock, F_SETFL, O_NONBLOCK) != 0) {
    throw SystemFailure("no socket to ask with");
  }
  return sock;
}

std::uint16_t QuestionId(const std::vector<unsigned char>& question) {
  return static_cast<std::uint16_t>(question[0] << 8 | question[1]);
}

void Ask(int sock, in_addr_t server, const std::vector<unsigned char>& question) {
  const sockaddr_in address = DnsAddress(server);
  sendto(sock, question.data(), question.size(), 0, reinterpret_cast<const sockaddr*>(&address),
         sizeof(address));
}

std::vector<Response> ReceiveResponses(int sock) {
  std::vector<Response> responses;
  for (int received = 0; received < kReceivedAtOnce; ++received) {
    unsigned char message[512];  // the header is enough
    sockaddr_in sender;
    socklen_t length = sizeof(sender);
    const ssize_t size =
        recvfrom(sock, message, sizeof(message), 0, reinterpret_cast<sockaddr*>(&sender), &length);
    if (size == -1) {
      break;
    }
    if (size >= kHeaderSize && (message[2] & kResponseBit) != 0 &&
        sender.sin_port == htons(kDnsPort)) {
      responses.push_back(
          {sender.sin_addr.s_addr, static_cast<std::uint16_t>((message[0] << 8) | message[1])});
    }
  }
  return responses;
}
