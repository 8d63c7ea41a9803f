// Datagrams that no well-meaning peer would send, and some that one would.
#ifndef TESTS_SERVICE_HOSTILE_DATAGRAMS_H_
#define TESTS_SERVICE_HOSTILE_DATAGRAMS_H_

#include <string>

#include "tests/service/dice.h"
#include "tests/support/dns_message_builder.h"

namespace service {

// Near a query: a header with one question mostly, names of every kind and none, cut and mutated.
// `mappedName`: one that the host map holds, chosen now and then.
support::Bytes HostileQuery(Dice& dice, const std::string& mappedName);

// At least a header under any identifier, and anything as its counts and behind it.
support::Bytes HostileAnswer(Dice& dice);

}  // namespace service

#endif  // TESTS_SERVICE_HOSTILE_DATAGRAMS_H_
