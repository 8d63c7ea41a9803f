#include "tests/support/scripted_datagrams.h"

#include <algorithm>
#include <cerrno>

namespace support {

SentDatagrams::SentDatagrams()
    : replaced_(platform::sendto, [this](auto... arguments) { return Send(arguments...); }) {}

void SentDatagrams::FailWith(int error) {
  const std::lock_guard<std::mutex> lock(mutex_);
  error_ = error;
}

std::vector<SentDatagram> SentDatagrams::All() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return sent_;
}

ssize_t SentDatagrams::Send(int sock, const void* bytes, std::size_t size, int flags,
                            const sockaddr* to, socklen_t toLength) {
  const auto* const first = static_cast<const unsigned char*>(bytes);
  const auto* const address = reinterpret_cast<const unsigned char*>(to);
  const std::lock_guard<std::mutex> lock(mutex_);
  sent_.push_back({sock, Bytes(first, first + size), flags, Bytes(address, address + toLength)});
  if (error_ != 0) {
    errno = error_;
    return -1;
  }
  return static_cast<ssize_t>(size);
}

ArrivingDatagrams::ArrivingDatagrams()
    : replaced_(platform::recvfrom, [this](auto... arguments) { return Receive(arguments...); }) {}

void ArrivingDatagrams::Arrive(const Bytes& bytes, const Bytes& from) {
  arrivals_.push_back({bytes, from, 0});
}

void ArrivingDatagrams::Fail(int error) { arrivals_.push_back({{}, {}, error}); }

ssize_t ArrivingDatagrams::Receive(int sock, void* buffer, std::size_t size, int flags,
                                   sockaddr* from, socklen_t* fromLength) {
  calls_.push_back({sock, size, flags, *fromLength});
  if (arrivals_.empty()) {
    errno = EAGAIN;
    return -1;
  }
  const Arrival arrival = arrivals_.front();
  arrivals_.pop_front();
  if (arrival.error != 0) {
    errno = arrival.error;
    return -1;
  }
  const std::size_t count = std::min(size, arrival.bytes.size());
  std::copy_n(arrival.bytes.begin(), count, static_cast<unsigned char*>(buffer));
  const std::size_t room = std::min<std::size_t>(*fromLength, arrival.from.size());
  std::copy_n(arrival.from.begin(), room, reinterpret_cast<unsigned char*>(from));
  *fromLength = static_cast<socklen_t>(arrival.from.size());
  return static_cast<ssize_t>(count);
}

}  // namespace support
