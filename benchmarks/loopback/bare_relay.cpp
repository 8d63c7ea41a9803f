// The floor of a forwarded query: the service's six system calls in two threads and nothing else.
//
//   bare_relay [--trace]
//
// Sends what comes to 127.0.0.1 port 53 on to 127.0.0.2 port 53 and the answers back, under the
// application's own identifier, by which it remembers the application. --trace: also prints the
// lines that the service prints for such a query and its answer.
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <cstring>
#include <thread>

#include "benchmarks/loopback/trace_lines.h"
#include "benchmarks/support/loopback_socket.h"

namespace {

using benchmarks::LoopbackSocket;

bool g_Traced = false;

// By identifier: address and port of the application, in network order. The query thread writes
// before it sends, the answer thread reads after the server has answered.
std::atomic<std::uint64_t> g_Applications[65536];

std::uint64_t Packed(const sockaddr_in& address) {
  return std::uint64_t{address.sin_addr.s_addr} << 16 | address.sin_port;
}

sockaddr_in Unpacked(std::uint64_t packed) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = static_cast<std::uint32_t>(packed >> 16);
  address.sin_port = static_cast<std::uint16_t>(packed & 0xFFFF);
  return address;
}

ssize_t WaitAndReceive(int sock, unsigned char (&message)[8192], sockaddr_in& sender) {
  fd_set readable;
  FD_ZERO(&readable);
  FD_SET(sock, &readable);
  if (select(sock + 1, &readable, nullptr, nullptr, nullptr) != 1) {
    benchmarks::Fail("select");
  }
  socklen_t senderLength = sizeof(sender);
  return recvfrom(sock, message, sizeof(message), 0, reinterpret_cast<sockaddr*>(&sender),
                  &senderLength);
}

void Send(int sock, const unsigned char* message, ssize_t length, const sockaddr_in& to) {
  sendto(sock, message, static_cast<std::size_t>(length), 0, reinterpret_cast<const sockaddr*>(&to),
         sizeof(to));
}

std::uint16_t IdOf(const unsigned char* message) {
  std::uint16_t id;
  std::memcpy(&id, message, sizeof(id));
  return id;
}

void RelayQueries(const LoopbackSocket& toApplications, const LoopbackSocket& toServers) {
  const sockaddr_in server = benchmarks::Ipv4Address("127.0.0.2", 53);
  for (int traceId = 0;; traceId = (traceId + 1) & 0xFFFF) {
    unsigned char message[8192];
    sockaddr_in application;
    const ssize_t length = WaitAndReceive(toApplications.descriptor(), message, application);
    if (length < 12) {
      continue;
    }
    g_Applications[IdOf(message)].store(Packed(application), std::memory_order_relaxed);
    if (g_Traced) {
      benchmarks::TraceQuery(static_cast<int>(length), benchmarks::kOtherName, traceId);
      benchmarks::TraceDispatch(traceId, 0, 2, 1);
      benchmarks::TraceDispatch(traceId, 1, 2, 0);
    }
    Send(toServers.descriptor(), message, length, server);
  }
}

void RelayAnswers(const LoopbackSocket& toApplications, const LoopbackSocket& toServers) {
  for (int traceId = 0;; traceId = (traceId + 1) & 0xFFFF) {
    unsigned char message[8192];
    sockaddr_in server;
    const ssize_t length = WaitAndReceive(toServers.descriptor(), message, server);
    if (length < 12) {
      continue;
    }
    Send(toApplications.descriptor(), message, length,
         Unpacked(g_Applications[IdOf(message)].load(std::memory_order_relaxed)));
    if (g_Traced) {
      benchmarks::TraceAnswer(static_cast<int>(length), benchmarks::kOtherName, traceId);
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  g_Traced = argc > 1 && std::strcmp(argv[1], "--trace") == 0;
  const LoopbackSocket toApplications("127.0.0.1", 53);
  const LoopbackSocket toServers("0.0.0.0");
  std::thread answers([&] { RelayAnswers(toApplications, toServers); });
  RelayQueries(toApplications, toServers);
}
