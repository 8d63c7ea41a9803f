// Addresses of datagrams: their texts, and the address lengths given to sendto. On macOS a length
// other than 16 on an IPv4 socket is an error that Linux does not report: the lengths are pinned.
#include "dns_proxy_mac/proxy/socket_address.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "tests/support/platform_calls.h"
#include "tests/support/scripted_datagrams.h"
#include "tests/support/socket_addresses.h"

static_assert(sizeof(sockaddr) == 16);
static_assert(sizeof(sockaddr_in) == 16);
static_assert(sizeof(sockaddr_in6) == 28);
static_assert(sizeof(ReceivedAddress) == 28);
static_assert(sizeof(AddressText::text) == 46);

namespace {

using support::Bytes;
using support::BytesOf;
using support::Ipv4Address;
using support::Ipv6Address;

// An address of `family` whose other bytes, as far as the receive call could leave some, are 1, 2,
// 3 and so on.
ReceivedAddress CountedBytes(int family) {
  ReceivedAddress address;
  unsigned char bytes[sizeof(address)];
  for (std::size_t i = 0; i < sizeof(bytes); ++i) {
    bytes[i] = static_cast<unsigned char>(i);
  }
  std::memcpy(&address, bytes, sizeof(address));
  address.sin6_family = static_cast<sa_family_t>(family);
  return address;
}

ReceivedAddress Received(const sockaddr_in& address) {
  ReceivedAddress received = {};
  std::memcpy(&received, &address, sizeof(address));
  return received;
}

TEST(Ipv4Text, IsDottedDecimalWithoutLeadingZeros) {
  for (const char* text : {"0.0.0.0", "127.0.0.1", "1.20.255.100", "10.0.200.9", "255.255.255.255",
                           "99.100.109.110"}) {
    EXPECT_STREQ(Ipv4Text(inet_addr(text)).text, text);
  }
}

TEST(Ipv4Text, WritesEveryByteAtEveryPlaceAsThePlatformDoes) {
  for (int place = 0; place < 4; ++place) {
    for (int byte = 0; byte < 256; ++byte) {
      unsigned char bytes[] = {7, 77, 177, 7};
      bytes[place] = static_cast<unsigned char>(byte);
      in_addr_t address;
      std::memcpy(&address, bytes, sizeof(address));
      char expected[INET_ADDRSTRLEN];
      ASSERT_NE(inet_ntop(AF_INET, &address, expected, sizeof(expected)), nullptr);
      ASSERT_STREQ(Ipv4Text(address).text, expected);
    }
  }
}

TEST(ApplicationText, IsTheIpv4Address) {
  EXPECT_STREQ(ApplicationText(Received(Ipv4Address("127.0.0.1", 4321))).text, "127.0.0.1");
}

TEST(ApplicationText, IsTheIpv6Address) {
  EXPECT_STREQ(ApplicationText(Ipv6Address("2001:db8::5", 4321)).text, "2001:db8::5");
  EXPECT_STREQ(ApplicationText(Ipv6Address("ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff", 1)).text,
               "ffff:ffff:ffff:ffff:ffff:ffff:ffff:ffff");
}

TEST(ApplicationText, IsEmptyForAnyOtherFamily) {
  EXPECT_STREQ(ApplicationText(CountedBytes(AF_UNIX)).text, "");
  EXPECT_STREQ(ApplicationText(CountedBytes(AF_UNSPEC)).text, "");
}

TEST(ServerText, IsTheIpv4Address) {
  EXPECT_STREQ(ServerText(Received(Ipv4Address("192.0.2.53", 53))).text, "192.0.2.53");
  EXPECT_STREQ(ServerText(Ipv4Address("192.0.2.53", 53)).text, "192.0.2.53");
}

TEST(ServerText, HasNoPort) {
  EXPECT_STREQ(ServerText(Received(Ipv4Address("192.0.2.53", 53))).text,
               ServerText(Received(Ipv4Address("192.0.2.53", 5353))).text);
}

TEST(ServerText, ReadsAnyOtherFamilyAsAnIpv6Address) {
  // The bytes from 8 to 23 stand where an IPv6 address has them.
  EXPECT_STREQ(ServerText(CountedBytes(AF_INET6)).text, "809:a0b:c0d:e0f:1011:1213:1415:1617");
  EXPECT_STREQ(ServerText(CountedBytes(AF_UNIX)).text, "809:a0b:c0d:e0f:1011:1213:1415:1617");
}

TEST(ServerText, OfAStoredAddressReadsZeroBehindItsSixteenBytes) {
  sockaddr_in stored;
  const ReceivedAddress counted = CountedBytes(AF_INET6);
  std::memcpy(&stored, &counted, sizeof(stored));
  EXPECT_STREQ(ServerText(stored).text, "809:a0b:c0d:e0f::");
}

TEST(ServerText, OfTheHostMapEntryIsTheUnspecifiedIpv6Address) {
  EXPECT_STREQ(ServerText(sockaddr_in{}).text, "::");
}

TEST(AddressTexts, AreEmptyWhenThePlatformCannotWriteThem) {
  const support::Replaced failing(support::platform::inet_ntop,
                                  [](int, const void*, char*, socklen_t) -> const char* {
                                    errno = ENOSPC;
                                    return nullptr;
                                  });
  const ReceivedAddress address = Ipv6Address("2001:db8::5", 1);
  const std::string application = ApplicationText(address).text;
  const std::string server = ServerText(address).text;
  EXPECT_EQ(application, "");
  EXPECT_EQ(server, "");
}

TEST(StoredAddress, IsTheFirstSixteenBytes) {
  const Bytes all = BytesOf(CountedBytes(AF_INET6));
  EXPECT_EQ(BytesOf(StoredAddress(CountedBytes(AF_INET6))), Bytes(all.begin(), all.begin() + 16));
}

class SendDatagramTest : public testing::Test {
 protected:
  const unsigned char payload_[5] = {'h', 'e', 'l', 'l', 'o'};
  support::SentDatagrams sent_;
};

TEST_F(SendDatagramTest, GivesTheAddressLength16ForIpv4) {
  const sockaddr_in to = Ipv4Address("192.0.2.53", 53);
  EXPECT_EQ(SendDatagram(9, payload_, 5, to), 5);
  ASSERT_EQ(sent_.All().size(), 1U);
  EXPECT_EQ(sent_.All()[0].address, BytesOf(to));
  EXPECT_EQ(sent_.All()[0].address.size(), 16U);
}

TEST_F(SendDatagramTest, GivesTheAddressLength28ForAnyOtherFamilyAndZeroBehind) {
  for (const int family : {AF_INET6, AF_UNIX, AF_UNSPEC}) {
    const sockaddr to = StoredAddress(CountedBytes(family));
    SendDatagram(9, payload_, 5, to);
    Bytes expected = BytesOf(to);
    expected.resize(28, 0);
    EXPECT_EQ(sent_.All().back().address, expected) << family;
  }
}

TEST_F(SendDatagramTest, GivesTheSocketTheBytesAndNoFlags) {
  SendDatagram(9, payload_, 4, Ipv4Address("192.0.2.53", 53));
  EXPECT_EQ(sent_.All()[0].sock, 9);
  EXPECT_EQ(sent_.All()[0].bytes, (Bytes{'h', 'e', 'l', 'l'}));
  EXPECT_EQ(sent_.All()[0].flags, 0);
}

TEST_F(SendDatagramTest, ReturnsMinusOneAndErrnoWhenItFails) {
  sent_.FailWith(ENETUNREACH);
  errno = 0;
  const ssize_t result = SendDatagram(9, payload_, 5, Ipv4Address("192.0.2.53", 53));
  const int error = errno;
  EXPECT_EQ(result, -1);
  EXPECT_EQ(error, ENETUNREACH);
}

}  // namespace
