// The two made-up answers: every byte that may change, and that no other does.
//
// Input: the application's identifier (2 bytes), the question's type (2), an address (4), then the
// query, which is lengthened to a header at least and cut to what a message holds.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "dns_proxy_mac/proxy/answers.h"
#include "fuzz/input.h"
#include "fuzz/require.h"
#include "tests/support/messages.h"

namespace {

using fuzz::Bytes;
using fuzz::Require;

constexpr unsigned char kBehind = 0xEE;

void CheckHostAnswer(const Bytes& query, unsigned short id, unsigned short type,
                     const Bytes& address) {
  const Bytes wire = {0xC0, 0x0C, 0, 1, 0,          1,          0,          1,
                      0x51, 0x80, 0, 4, address[0], address[1], address[2], address[3]};
  HostRespData record;
  std::memcpy(&record, wire.data(), sizeof(record));

  const std::unique_ptr<unsigned char[]> message(new unsigned char[kMaxMessageSize]);
  std::fill_n(message.get(), kMaxMessageSize, kBehind);
  std::copy(query.begin(), query.end(), message.get());
  const auto length = static_cast<std::size_t>(
      MakeHostAnswer(message.get(), static_cast<int>(query.size()), record, id, type));

  Require(length == query.size() + wire.size(), "a host answer is longer by the record");
  Bytes expected = support::HostAnswer(support::UnderProxyId(query, id), type, address);
  expected.push_back(0);
  Require(std::equal(expected.begin(), expected.end(), message.get()), "a host answer's bytes");
  Require(std::all_of(message.get() + expected.size(), message.get() + kMaxMessageSize,
                      [](unsigned char byte) { return byte == kBehind; }),
          "nothing is written behind the zero byte");
}

void CheckNoSuchName(const Bytes& query, unsigned short id) {
  const std::unique_ptr<unsigned char[]> asked(new unsigned char[query.size()]);
  const std::unique_ptr<unsigned char[]> response(new unsigned char[query.size()]);
  std::copy(query.begin(), query.end(), asked.get());
  std::fill_n(response.get(), query.size(), kBehind);
  MakeNoSuchNameResponse(asked.get(), static_cast<int>(query.size()), id, response.get());

  const Bytes expected = support::NoSuchName(support::UnderProxyId(query, id));
  Require(std::equal(expected.begin(), expected.end(), response.get()), "no such name's bytes");
  Require(std::equal(query.begin(), query.end(), asked.get()), "the query is kept");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned short id = input.Number16();
  const unsigned short type = input.Number16();
  const Bytes address = {input.Byte(), input.Byte(), input.Byte(), input.Byte()};
  Bytes query = input.Take(kMaxMessageSize);
  query.resize(std::max<std::size_t>(query.size(), kDnsHeaderSize));

  if (query.size() <= kMaxHostAnswerQuery) {
    CheckHostAnswer(query, id, type, address);
  }
  CheckNoSuchName(query, id);
  return 0;
}
