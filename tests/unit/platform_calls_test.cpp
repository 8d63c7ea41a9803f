// The stand-ins for platform calls: what the fault tests rely on.
#include "tests/support/platform_calls.h"

#include <gtest/gtest.h>
#include <netinet/in.h>
#include <unistd.h>

#include <cerrno>

#include "tests/support/scripted_datagrams.h"
#include "tests/support/socket_addresses.h"

namespace support {
namespace {

int OpenSocket() { return ::socket(AF_INET, SOCK_DGRAM, 0); }

TEST(PlatformCall, IsTheSystemsUntilItIsReplaced) {
  const int sock = OpenSocket();
  ASSERT_GE(sock, 0);
  EXPECT_EQ(::close(sock), 0);
  EXPECT_EQ(::close(sock), -1) << "a real descriptor was closed the first time";
}

TEST(PlatformCall, IsTheReplacementWhileThatLives) {
  {
    const Replaced outer(platform::system, [](const char*) { return 11; });
    EXPECT_EQ(::system("exit 1"), 11);
    {
      const Replaced inner(platform::system, [](const char*) { return 22; });
      EXPECT_EQ(::system("exit 1"), 22);
    }
    EXPECT_EQ(::system("exit 1"), 11);
  }
  EXPECT_EQ(::system("exit 0"), 0);
}

TEST(PlatformCall, FailsTheOneCallThatWasNamed) {
  const Failing failing(platform::socket, 2, -1, EMFILE);
  const int first = OpenSocket();
  errno = 0;
  const int second = OpenSocket();
  const int error = errno;
  const int third = OpenSocket();
  EXPECT_GE(first, 0);
  EXPECT_EQ(second, -1);
  EXPECT_EQ(error, EMFILE);
  EXPECT_GE(third, 0);
  EXPECT_EQ(failing.Calls(), 3);
  ::close(first);
  ::close(third);
}

TEST(ScriptedDatagrams, KeepWhatIsSentWithItsAddressAsLongAsGiven) {
  SentDatagrams sent;
  const sockaddr_in to = Ipv4Address("192.0.2.1", 53);
  EXPECT_EQ(::sendto(5, "abc", 3, 0, reinterpret_cast<const sockaddr*>(&to), sizeof(to)), 3);
  sent.FailWith(ENETUNREACH);
  EXPECT_EQ(::sendto(6, "d", 1, 0, reinterpret_cast<const sockaddr*>(&to), 8), -1);
  EXPECT_EQ(errno, ENETUNREACH);

  const auto all = sent.All();
  ASSERT_EQ(all.size(), 2U);
  EXPECT_EQ(all[0].sock, 5);
  EXPECT_EQ(all[0].bytes, (Bytes{'a', 'b', 'c'}));
  EXPECT_EQ(all[0].address, BytesOf(to));
  EXPECT_EQ(all[1].address.size(), 8U);
}

TEST(ScriptedDatagrams, ArriveInOrderAndAreCutToTheBuffer) {
  ArrivingDatagrams arriving;
  const sockaddr_in from = Ipv4Address("192.0.2.1", 5353);
  arriving.Arrive({'a', 'b', 'c'}, from);
  arriving.Fail(EINTR);

  char buffer[2] = {};
  sockaddr_in seen = {};
  socklen_t length = sizeof(seen);
  EXPECT_EQ(::recvfrom(7, buffer, 2, 0, reinterpret_cast<sockaddr*>(&seen), &length), 2);
  EXPECT_EQ(buffer[1], 'b');
  EXPECT_EQ(BytesOf(seen), BytesOf(from));
  EXPECT_EQ(::recvfrom(7, buffer, 2, 0, reinterpret_cast<sockaddr*>(&seen), &length), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(::recvfrom(7, buffer, 2, 0, reinterpret_cast<sockaddr*>(&seen), &length), -1);
  EXPECT_EQ(errno, EAGAIN);
  ASSERT_EQ(arriving.Calls().size(), 3U);
  EXPECT_EQ(arriving.Calls()[0].sock, 7);
  EXPECT_EQ(arriving.Calls()[0].addressLength, sizeof(seen));
}

}  // namespace
}  // namespace support
