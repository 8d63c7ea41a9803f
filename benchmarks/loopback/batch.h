// Datagrams by the dozen with one system call, so that the processes that measure cost less than
// the one that is measured.
#ifndef BENCHMARKS_LOOPBACK_BATCH_H_
#define BENCHMARKS_LOOPBACK_BATCH_H_

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cstddef>

namespace benchmarks {

class Batch {
 public:
  static constexpr int kCapacity = 64;
  static constexpr std::size_t kMessageSize = 512;

  Batch() {
    for (std::size_t i = 0; i < kCapacity; ++i) {
      vectors_[i] = {messages_[i].data(), kMessageSize};
      headers_[i].msg_hdr = {};
      headers_[i].msg_hdr.msg_name = &addresses_[i];
      headers_[i].msg_hdr.msg_iov = &vectors_[i];
      headers_[i].msg_hdr.msg_iovlen = 1;
    }
  }
  Batch(const Batch&) = delete;
  Batch& operator=(const Batch&) = delete;

  unsigned char* message(int i) { return messages_[static_cast<std::size_t>(i)].data(); }
  sockaddr_in& address(int i) { return addresses_[static_cast<std::size_t>(i)]; }
  int length(int i) const {
    return static_cast<int>(headers_[static_cast<std::size_t>(i)].msg_len);
  }

  // Waits for one datagram, takes as many as are there, and returns their number; -1: see errno.
  int Receive(int sock) {
    for (std::size_t i = 0; i < kCapacity; ++i) {
      vectors_[i].iov_len = kMessageSize;
      headers_[i].msg_hdr.msg_namelen = sizeof(sockaddr_in);
    }
    return recvmmsg(sock, headers_.data(), kCapacity, MSG_WAITFORONE, nullptr);
  }

  // Says that message `i`, to be sent, has `length` bytes. `connected`: it goes where the socket
  // does, and not to its address.
  void Prepare(int i, int length, bool connected) {
    vectors_[static_cast<std::size_t>(i)].iov_len = static_cast<std::size_t>(length);
    headers_[static_cast<std::size_t>(i)].msg_hdr.msg_namelen =
        connected ? 0 : static_cast<socklen_t>(sizeof(sockaddr_in));
  }

  // Sends the first `count`; true when all of them have been.
  bool Send(int sock, int count) {
    for (int sent = 0; sent < count;) {
      const int more = sendmmsg(sock, &headers_[static_cast<std::size_t>(sent)],
                                static_cast<unsigned>(count - sent), 0);
      if (more <= 0) {
        return false;
      }
      sent += more;
    }
    return true;
  }

 private:
  std::array<std::array<unsigned char, kMessageSize>, kCapacity> messages_;
  std::array<sockaddr_in, kCapacity> addresses_;
  std::array<iovec, kCapacity> vectors_;
  std::array<mmsghdr, kCapacity> headers_;
};

}  // namespace benchmarks

#endif  // BENCHMARKS_LOOPBACK_BATCH_H_
