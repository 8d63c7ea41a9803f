// The entry for C with a service of this file's own behind it: what is handed on, what is refused.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <new>
#include <string>
#include <utility>
#include <vector>

#include "dns_proxy_mac/dns_proxy_c.h"
#include "dns_proxy_mac/proxy/dns_proxy.h"

namespace {

using Names = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;

std::function<bool(const Names&, const Pairs&)> g_service;

}  // namespace

bool StartDnsSrv(const Names& vecDnsServers, const Pairs& vecHostMaps) {
  return g_service(vecDnsServers, vecHostMaps);
}

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;

TEST(CApi, HandsServersAndMappingsOnInTheirOrder) {
  Names servers;
  Pairs mappings;
  g_service = [&](const Names& names, const Pairs& pairs) {
    servers = names;
    mappings = pairs;
    return true;
  };
  const char* const serverTexts[] = {"192.0.2.1", "192.0.2.2"};
  const char* const names[] = {"a.example", "b.example"};
  const char* const addresses[] = {"192.0.2.3", "192.0.2.4"};

  EXPECT_TRUE(dns_proxy_start(serverTexts, 2, names, addresses, 2));
  EXPECT_THAT(servers, ElementsAre("192.0.2.1", "192.0.2.2"));
  EXPECT_THAT(mappings,
              ElementsAre(Pair("a.example", "192.0.2.3"), Pair("b.example", "192.0.2.4")));
}

TEST(CApi, TakesNullForAnArrayOfNone) {
  g_service = [](const Names& names, const Pairs& pairs) {
    EXPECT_THAT(names, IsEmpty());
    EXPECT_THAT(pairs, IsEmpty());
    return true;
  };
  EXPECT_TRUE(dns_proxy_start(nullptr, 0, nullptr, nullptr, 0));
}

TEST(CApi, TellsThatTheServiceCouldNotStart) {
  g_service = [](const Names&, const Pairs&) { return false; };
  EXPECT_FALSE(dns_proxy_start(nullptr, 0, nullptr, nullptr, 0));
}

TEST(CApi, RefusesANullStringBeforeTheServiceIsCalled) {
  bool called = false;
  g_service = [&](const Names&, const Pairs&) { return called = true; };
  const char* const whole[] = {"192.0.2.1", "192.0.2.2"};
  const char* const holed[] = {"192.0.2.1", nullptr};

  EXPECT_FALSE(dns_proxy_start(holed, 2, whole, whole, 2));
  EXPECT_FALSE(dns_proxy_start(whole, 2, holed, whole, 2));
  EXPECT_FALSE(dns_proxy_start(whole, 2, whole, holed, 2));
  EXPECT_FALSE(called);
}

TEST(CApi, LetsNoExceptionOut) {
  g_service = [](const Names&, const Pairs&) -> bool { throw std::bad_alloc(); };
  EXPECT_FALSE(dns_proxy_start(nullptr, 0, nullptr, nullptr, 0));
}

}  // namespace
