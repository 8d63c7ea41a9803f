// What becomes of a datagram from an application, by the rules and in other words than the
// service's code: the tests with hostile datagrams compare the service with it.
#ifndef TESTS_SERVICE_QUERY_RULES_H_
#define TESTS_SERVICE_QUERY_RULES_H_

#include <map>
#include <string>

#include "tests/support/dns_message_builder.h"

namespace service {

using support::Bytes;

enum class Fate { kEndsTheThread, kAnsweredFromTheHostMap, kNoSuchName, kForwarded };

struct Verdict {
  Fate fate;
  // What is sent: to the application under its own identifier, or, when it is forwarded, to the
  // server, with the identifier still the application's.
  Bytes datagram;
};

// `hostMap`: lower-case names to the four bytes of an address.
Verdict Judge(const Bytes& received, const std::map<std::string, Bytes>& hostMap);

}  // namespace service

#endif  // TESTS_SERVICE_QUERY_RULES_H_
