// The floor of a host-map answer: the service's three system calls a query and nothing else.
//
//   bare_echo [--trace]
//
// As in the service the loop runs on a thread of its own while the first one waits: the system's
// calls cost more in a process with several threads, which is no doing of the service's code.
//
// Answers on 127.0.0.1 port 53 with the query itself, its response bit set. --trace: also prints
// the lines that the service prints for such a query, to show what the rest of the service costs.
#include <netinet/in.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <cstring>
#include <thread>

#include "benchmarks/loopback/trace_lines.h"
#include "benchmarks/support/loopback_socket.h"

namespace {

[[noreturn]] void Echo(int sock, bool traced) {
  int id = 0;
  for (;;) {
    fd_set readable;
    FD_ZERO(&readable);
    FD_SET(sock, &readable);
    if (select(sock + 1, &readable, nullptr, nullptr, nullptr) != 1) {
      benchmarks::Fail("select");
    }
    unsigned char message[8192];
    sockaddr_in application;
    socklen_t addressLength = sizeof(application);
    const ssize_t length = recvfrom(sock, message, sizeof(message), 0,
                                    reinterpret_cast<sockaddr*>(&application), &addressLength);
    if (length < 12) {
      continue;
    }
    message[2] |= 0x80;
    message[7] = 1;
    if (traced) {
      benchmarks::TraceQuery(static_cast<int>(length), benchmarks::kMappedName, id);
      benchmarks::TraceDispatch(id, 0, 2, 1);
      benchmarks::TraceHostAnswer(benchmarks::kMappedName, id);
      id = (id + 1) & 0xFFFF;
    }
    sendto(sock, message, static_cast<std::size_t>(length), 0,
           reinterpret_cast<const sockaddr*>(&application), addressLength);
  }
}

}  // namespace

int main(int argc, char** argv) {
  const bool traced = argc > 1 && std::strcmp(argv[1], "--trace") == 0;
  const benchmarks::LoopbackSocket listening("127.0.0.1", 53);
  std::thread(Echo, listening.descriptor(), traced).join();
}
