// The entries of the method list, byte by byte.
#include "dns_proxy_mac/proxy/query_method.h"

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstddef>

#include "tests/support/dns_message_builder.h"
#include "tests/support/socket_addresses.h"

static_assert(sizeof(sockaddr_in) == 16);
static_assert(sizeof(DNSMethodInfo) == 24);
static_assert(offsetof(DNSMethodInfo, iDNSMethodType) == 0);
static_assert(offsetof(DNSMethodInfo, serverAddr) == 4);
static_assert(offsetof(DNSMethodInfo, iTimeoutMs) == 20);
static_assert(DNS_METHOD_DNSSERVER == 0);
static_assert(DNS_METHOD_HOSTMAP == 1);
static_assert(AF_INET == 2);
#if defined(__APPLE__)
static_assert(offsetof(sockaddr_in, sin_family) == 1, "a length byte stands before the family");
static_assert(AF_INET6 == 30);
#endif

namespace {

using support::Bytes;
using support::BytesOf;

TEST(HostMapMethod, IsAllZeroButItsType) {
  const DNSMethodInfo method = HostMapMethod();
  EXPECT_EQ(method.iDNSMethodType, 1);
  EXPECT_EQ(BytesOf(method.serverAddr), Bytes(16, 0));
  EXPECT_EQ(method.iTimeoutMs, 0);
}

TEST(DnsServerMethod, HoldsPort53TheAddressAndAThousandMilliseconds) {
  const DNSMethodInfo method = DnsServerMethod("192.0.2.17");
  EXPECT_EQ(method.iDNSMethodType, 0);
  EXPECT_EQ(method.serverAddr.sin_family, AF_INET);
  EXPECT_EQ(method.iTimeoutMs, 1000);

  Bytes expected(16, 0);
#if defined(__APPLE__)
  expected[1] = 2;  // the length byte before it stays zero
#else
  expected[0] = 2;
#endif
  const Bytes portAndAddress = {0x00, 0x35, 192, 0, 2, 17};
  std::copy(portAndAddress.begin(), portAndAddress.end(), expected.begin() + 2);
  EXPECT_EQ(BytesOf(method.serverAddr), expected);
}

TEST(DnsServerMethod, TextThatIsNoAddressIsListedAs255_255_255_255) {
  for (const char* text : {"dns.example", "", "192.0.2.256", "2001:db8::1"}) {
    const DNSMethodInfo method = DnsServerMethod(text);
    EXPECT_EQ(BytesOf(method.serverAddr.sin_addr), Bytes(4, 0xFF)) << text;
    EXPECT_EQ(BytesOf(method.serverAddr.sin_port), (Bytes{0x00, 0x35})) << text;
    EXPECT_EQ(method.iDNSMethodType, 0) << text;
  }
}

}  // namespace
