#include "host/parent/upstream_monitor.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "host/common/port.h"

namespace {

using Bytes = std::vector<unsigned char>;

// A server of the test's own, on an address of its own, and who watches it.
class UpstreamMonitorTest : public ::testing::Test {
 protected:
  UpstreamMonitorTest() { monitor_.Watch({"127.0.8.9", "127.0.8.10"}, now_); }
  ~UpstreamMonitorTest() override { close(server_); }

  // False where the test has no right to port 53.
  bool Bind(std::uint16_t port) {
    sockaddr_in address = DnsAddress(inet_addr("127.0.8.9"));
    address.sin_port = htons(port);
    return bind(server_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  }

  // What the server is asked, without the identifier, which is kept.
  Bytes Asked() {
    monitor_.AskDue(now_);
    Bytes question(512);
    const ssize_t size = recv(server_, question.data(), question.size(), MSG_DONTWAIT);
    question.resize(size < 2 ? 2 : static_cast<std::size_t>(size));
    id_ = {question[0], question[1]};
    return {question.begin() + 2, question.end()};
  }

  // Sends `message` to the asking socket, which has a port from its first question on.
  void Answer(const Bytes& message) {
    sockaddr_in asker = {};
    socklen_t length = sizeof(asker);
    ASSERT_EQ(getsockname(monitor_.fd(), reinterpret_cast<sockaddr*>(&asker), &length), 0);
    asker.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(sendto(server_, message.data(), message.size(), 0,
                     reinterpret_cast<const sockaddr*>(&asker), sizeof(asker)),
              static_cast<ssize_t>(message.size()));
  }

  // A header under the identifier that was asked.
  Bytes Header(unsigned char flags) const {
    return {id_[0], id_[1], flags, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  }

  bool Believes() {
    monitor_.Receive(now_);
    return monitor_.upstreams()[0].health.roundTrip().has_value();
  }

  const TimePoint now_ = Clock::now();
  const int server_ = socket(AF_INET, SOCK_DGRAM, 0);
  UpstreamMonitor monitor_;
  Bytes id_{0, 0};
};

TEST_F(UpstreamMonitorTest, QuestionIsTheseBytes) {
  if (!Bind(kDnsPort)) {
    GTEST_SKIP() << "no right to port 53";
  }
  const Bytes expected = {
      0x01, 0x00,                    // recursion desired
      0,    1,    0, 0, 0, 0, 0, 0,  // one question
      0,                             // the root
      0,    2,                       // NS
      0,    1,                       // Internet
  };
  EXPECT_EQ(Asked(), expected);
}

TEST_F(UpstreamMonitorTest, ResponseNeedsAHeaderAndTheResponseBitAndTheIdentifier) {
  if (!Bind(kDnsPort)) {
    GTEST_SKIP() << "no right to port 53";
  }
  Asked();
  Bytes runt = Header(0x80);
  runt.pop_back();
  Bytes other = Header(0x80);
  other[1] ^= 1;
  for (const Bytes& message : {Header(0), runt, Bytes(), other}) {
    Answer(message);
    EXPECT_FALSE(Believes()) << message.size();
  }
  Answer(Header(0x80));
  EXPECT_TRUE(Believes());
  EXPECT_FALSE(monitor_.upstreams()[1].health.roundTrip()) << "the other server's";
}

TEST_F(UpstreamMonitorTest, ResponseFromAnotherPortIsNone) {
  ASSERT_TRUE(Bind(0));
  monitor_.AskDue(now_);
  const std::uint16_t id = monitor_.upstreams()[0].id;
  std::memcpy(id_.data(), &id, sizeof(id));
  Answer(Header(0x80));
  EXPECT_FALSE(Believes());
}

TEST_F(UpstreamMonitorTest, FloodOfDatagramsIsTakenInParts) {
  if (!Bind(kDnsPort)) {
    GTEST_SKIP() << "no right to port 53";
  }
  Asked();
  for (int i = 0; i < 65; ++i) {
    Answer(Header(i < 64 ? 0 : 0x80));
  }
  EXPECT_FALSE(Believes());
  EXPECT_TRUE(Believes());
}

}  // namespace
