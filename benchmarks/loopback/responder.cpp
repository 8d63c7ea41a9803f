// The upstream server: one A record to every question on 127.0.0.2 port 53, silence to those for
// names that begin with "silent".
#include <cerrno>
#include <cstring>

#include "benchmarks/loopback/batch.h"
#include "benchmarks/support/loopback_socket.h"
#include "benchmarks/support/messages.h"

int main() {
  const benchmarks::LoopbackSocket listening("127.0.0.2", 53);
  static benchmarks::Batch received;
  static benchmarks::Batch answers;
  for (;;) {
    const int count = received.Receive(listening.descriptor());
    if (count == -1) {
      if (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR) {
        continue;
      }
      benchmarks::Fail("recvmmsg");
    }
    int answered = 0;
    for (int i = 0; i < count; ++i) {
      const unsigned char* const query = received.message(i);
      const int length = received.length(i);
      if (length < benchmarks::kHeaderSize + 7 ||
          std::memcmp(query + benchmarks::kHeaderSize + 1, "silent", 6) == 0) {
        continue;
      }
      std::memcpy(answers.message(answered), query, static_cast<std::size_t>(length));
      answers.address(answered) = received.address(i);
      answers.Prepare(answered, benchmarks::TurnIntoResponse(answers.message(answered), length),
                      /*connected=*/false);
      ++answered;
    }
    if (!answers.Send(listening.descriptor(), answered)) {
      benchmarks::Fail("sendmmsg");
    }
  }
}
