// The load: queries for one name to 127.0.0.1 port 53, a fixed number on their way at a time.
//
//   load NAME QUERIES WINDOW       every query has to be answered, within a second
//   load NAME QUERIES silent       no query of NAME is answered: every 64 of them are followed by a
//                                  query of the host map, whose answer shows that they have arrived
//
// Prints the seconds that passed and the seconds of processor time that it took itself.
#include <sys/socket.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <vector>

#include "benchmarks/loopback/batch.h"
#include "benchmarks/support/loopback_socket.h"
#include "benchmarks/support/messages.h"

namespace {

using benchmarks::Batch;
using benchmarks::Fail;
using benchmarks::Message;

double Seconds(clockid_t clock) {
  timespec now;
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

class Load {
 public:
  explicit Load(int sock) : sock_(sock), waiting_(65536, false) {}

  // Sends `count` queries (at most Batch::kCapacity), each under the next identifier.
  void Send(const Message& query, int count, bool answered) {
    for (int i = 0; i < count; ++i) {
      std::memcpy(out_.message(i), query.data(), query.size());
      out_.message(i)[0] = static_cast<unsigned char>(next_ >> 8);
      out_.message(i)[1] = static_cast<unsigned char>(next_ & 0xFF);
      waiting_[next_] = answered;
      next_ = (next_ + 1) & 0xFFFF;
      out_.Prepare(i, static_cast<int>(query.size()), /*connected=*/true);
    }
    if (!out_.Send(sock_, count)) {
      Fail("send");
    }
  }

  // Waits for answers and returns how many came; ends the process on a wrong one or on none.
  int Receive() {
    const int count = in_.Receive(sock_);
    if (count <= 0) {
      Fail("no answer");
    }
    for (int i = 0; i < count; ++i) {
      const unsigned char* const answer = in_.message(i);
      const unsigned id = static_cast<unsigned>(answer[0] << 8 | answer[1]);
      if (in_.length(i) < benchmarks::kHeaderSize || !waiting_[id] || (answer[2] & 0x80) == 0 ||
          (answer[3] & 0x0F) != 0 || answer[7] != 1) {
        Fail("a wrong answer");
      }
      waiting_[id] = false;
    }
    return count;
  }

 private:
  int sock_;
  unsigned next_ = 0;
  std::vector<bool> waiting_;  // by identifier: whether an answer is to come
  Batch in_;
  Batch out_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: %s NAME QUERIES WINDOW|silent\n", argv[0]);
    return 2;
  }
  const Message query = benchmarks::MakeQuery(argv[1], 0);
  const int queries = std::atoi(argv[2]);
  const bool silent = std::strcmp(argv[3], "silent") == 0;

  const benchmarks::LoopbackSocket sock;
  const sockaddr_in service = benchmarks::Ipv4Address("127.0.0.1", 53);
  if (connect(sock.descriptor(), reinterpret_cast<const sockaddr*>(&service), sizeof(service)) !=
      0) {
    Fail("connect");
  }
  static Load load(sock.descriptor());
  const double began = Seconds(CLOCK_MONOTONIC);
  const double beganOwn = Seconds(CLOCK_PROCESS_CPUTIME_ID);
  if (silent) {
    const Message barrier = benchmarks::MakeQuery(benchmarks::kMappedName, 0);
    for (int sent = 0; sent < queries; sent += Batch::kCapacity) {
      load.Send(query, std::min(Batch::kCapacity, queries - sent), /*answered=*/false);
      load.Send(barrier, 1, /*answered=*/true);
      load.Receive();
    }
  } else {
    const int window = std::clamp(std::atoi(argv[3]), 1, Batch::kCapacity);
    int sent = std::min(window, queries);
    load.Send(query, sent, /*answered=*/true);
    for (int answered = 0; answered < queries;) {
      const int came = load.Receive();
      answered += came;
      const int more = std::min(came, queries - sent);
      load.Send(query, more, /*answered=*/true);
      sent += more;
    }
  }
  std::printf("%.9f %.9f\n", Seconds(CLOCK_MONOTONIC) - began,
              Seconds(CLOCK_PROCESS_CPUTIME_ID) - beganOwn);
}
