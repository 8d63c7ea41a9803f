// Datagrams without a network: what the program sends is kept, what it receives is given.
#ifndef TESTS_SUPPORT_SCRIPTED_DATAGRAMS_H_
#define TESTS_SUPPORT_SCRIPTED_DATAGRAMS_H_

#include <deque>
#include <mutex>
#include <vector>

#include "tests/support/dns_message_builder.h"
#include "tests/support/platform_calls.h"
#include "tests/support/socket_addresses.h"

namespace support {

struct SentDatagram {
  int sock;
  Bytes bytes;
  int flags;
  Bytes address;  // as many bytes as the call's address length said
};

// While it lives, sendto sends nothing: it keeps the datagram and returns its length. Any thread.
class SentDatagrams {
 public:
  SentDatagrams();

  // From now on sendto returns -1 with `error` in errno. The attempts are kept too.
  void FailWith(int error);

  // What was given to sendto, in order.
  std::vector<SentDatagram> All() const;

 private:
  ssize_t Send(int sock, const void* bytes, std::size_t size, int flags, const sockaddr* to,
               socklen_t toLength);

  mutable std::mutex mutex_;
  std::vector<SentDatagram> sent_;
  int error_ = 0;
  Replaced<ssize_t(int, const void*, std::size_t, int, const sockaddr*, socklen_t)> replaced_;
};

// How recvfrom was called.
struct ReceiveCall {
  int sock;
  std::size_t size;
  int flags;
  socklen_t addressLength;
};

// While it lives, recvfrom gives the datagrams that were made to arrive, in order, cut to the
// caller's buffer; when there is none left it returns -1 with EAGAIN. One thread.
class ArrivingDatagrams {
 public:
  ArrivingDatagrams();

  void Arrive(const Bytes& bytes, const sockaddr_in& from) { Arrive(bytes, BytesOf(from)); }
  void Arrive(const Bytes& bytes, const sockaddr_in6& from) { Arrive(bytes, BytesOf(from)); }

  // `from`: the bytes of a socket address of any family.
  void Arrive(const Bytes& bytes, const Bytes& from);

  // The next recvfrom returns -1 with `error` in errno.
  void Fail(int error);

  const std::vector<ReceiveCall>& Calls() const { return calls_; }

 private:
  struct Arrival {
    Bytes bytes;
    Bytes from;
    int error;
  };

  ssize_t Receive(int sock, void* buffer, std::size_t size, int flags, sockaddr* from,
                  socklen_t* fromLength);

  std::deque<Arrival> arrivals_;
  std::vector<ReceiveCall> calls_;
  Replaced<ssize_t(int, void*, std::size_t, int, sockaddr*, socklen_t*)> replaced_;
};

}  // namespace support

#endif  // TESTS_SUPPORT_SCRIPTED_DATAGRAMS_H_
