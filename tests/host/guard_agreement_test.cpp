// The guard's judgement beside the return values of the service's own handlers: every datagram that
// differs in what decides.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "dns_proxy_mac/proxy/query_path.h"
#include "dns_proxy_mac/proxy/response_path.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "host/child/guard.h"
#include "tests/support/dns_message_builder.h"
#include "tests/support/platform_calls.h"
#include "tests/support/socket_addresses.h"
#include "tests/support/trace_capture.h"

namespace {

using support::Bytes;
using support::HexText;

constexpr std::size_t kHeaderSize = 12;
constexpr std::size_t kLongest = 8192;  // of what a handler receives

// The handlers, with one datagram each; what they print and send goes nowhere.
class GuardAgreement : public testing::Test {
 protected:
  GuardAgreement() { stdout = nowhere_; }
  ~GuardAgreement() override {
    stdout = standardOutput_;
    std::fclose(nowhere_);
    g_DnsRequestTable.Clear();
  }

  bool Accept(const Bytes& query) {
    datagram_ = &query;
    return RecvAndProcessPacketsFromLocalApps(1);
  }
  bool GoOnAfter(const Bytes& answer) {
    datagram_ = &answer;
    return RecvAndProcessPacketsFromDNSServer(1);
  }

  // Judges `query` as host and service do.
  void CheckQuery(const Bytes& query) {
    if ((JudgeQuery(query) == Verdict::kPasses) != Accept(query)) {
      ++disagreements_;
      ADD_FAILURE() << HexText(query);
    }
    ++compared_;
    ASSERT_LT(disagreements_, 10) << "and so on";
  }

  int compared_ = 0;

 private:
  ssize_t Receive(void* buffer, std::size_t size, sockaddr* from, socklen_t* fromLength) const {
    const std::size_t count = std::min(size, datagram_->size());
    std::copy_n(datagram_->begin(), count, static_cast<unsigned char*>(buffer));
    const sockaddr_in sender = support::Ipv4Address("127.0.0.1", 5353);
    std::memcpy(from, &sender, sizeof(sender));
    *fromLength = sizeof(sender);
    return static_cast<ssize_t>(count);
  }

  std::FILE* const standardOutput_ = stdout;
  std::FILE* const nowhere_ = std::fopen("/dev/null", "w");
  const Bytes* datagram_ = nullptr;
  int disagreements_ = 0;
  const support::Replaced<ssize_t(int, void*, std::size_t, int, sockaddr*, socklen_t*)> received_{
      support::platform::recvfrom,
      [this](int, void* buffer, std::size_t size, int, sockaddr* from, socklen_t* fromLength) {
        return Receive(buffer, size, from, fromLength);
      }};
  const support::Replaced<ssize_t(int, const void*, std::size_t, int, const sockaddr*, socklen_t)>
      sent_{support::platform::sendto, [](int, const void*, std::size_t size, int, const sockaddr*,
                                          socklen_t) { return static_cast<ssize_t>(size); }};
};

// A header with `questions`, then `name`, filled up with 'a' to `size` or cut there.
Bytes Query(unsigned questions, Bytes name, std::size_t size) {
  Bytes query = support::DnsMessageBuilder()
                    .QuestionCount(static_cast<unsigned short>(questions))
                    .Raw(std::move(name))
                    .Build();
  query.resize(size, 'a');
  return query;
}

TEST_F(GuardAgreement, EveryFirstLengthWithEveryFirstByteOfALabel) {
  for (const std::size_t behind : {0U, 1U, 2U, 3U, 8U, 127U, 128U, 200U}) {
    const bool both = behind > 1;
    for (int length = 0; length < 256; ++length) {
      for (int first = 0; first < (both ? 256 : 1); ++first) {
        const Bytes name = {static_cast<unsigned char>(length), static_cast<unsigned char>(first)};
        CheckQuery(Query(1, name, kHeaderSize + behind));
      }
    }
  }
  EXPECT_EQ(compared_, 6 * 65536 + 2 * 256);
}

TEST_F(GuardAgreement, EveryQuestionCount) {
  for (unsigned questions = 0; questions < 65536; ++questions) {
    CheckQuery(Query(questions, {1, 'a', 0, 0, 1, 0, 1}, kHeaderSize + 7));
  }
  EXPECT_EQ(compared_, 65536);
}

TEST_F(GuardAgreement, EverySecondLabelBehindOneThatPasses) {
  for (int length = 0; length < 256; ++length) {
    for (int first = 0; first < 256; ++first) {
      const Bytes name = {1, 'a', static_cast<unsigned char>(length),
                          static_cast<unsigned char>(first)};
      CheckQuery(Query(1, name, kHeaderSize + 20));
    }
  }
  EXPECT_EQ(compared_, 65536);
}

TEST_F(GuardAgreement, EverySizeOfAQueryAndOfAnAnswer) {
  for (std::size_t size = 0; size <= kLongest; ++size) {
    const Bytes datagram = Query(1, {1, 'a', 0, 0, 1, 0, 1}, size);
    CheckQuery(datagram);
    EXPECT_EQ(JudgeAnswer(datagram, {}) == Verdict::kPasses, GoOnAfter(datagram)) << size;
  }
  EXPECT_EQ(compared_, kLongest + 1);
}

// Names that leave no room: the service reads what came before the label that does not fit.
TEST_F(GuardAgreement, NamesThatAreTooLong) {
  for (int length = 1; length < 128; ++length) {
    Bytes name;
    while (name.size() < 1200) {
      name.push_back(static_cast<unsigned char>(length));
      name.insert(name.end(), static_cast<std::size_t>(length), 'a');
    }
    const std::size_t size = kHeaderSize + name.size();
    CheckQuery(Query(1, std::move(name), size));
  }
  EXPECT_EQ(compared_, 127);
}

TEST(GuardTrace, NoLineComesFromJudging) {
  const Bytes datagrams[] = {Query(1, {0x80}, 20), Query(2, {}, 20), Query(1, {0}, 17),
                             Query(1, {1, 0}, 20), Bytes(5),         Query(1, {1, 'a'}, 1300)};
  EXPECT_TRUE(support::TraceOf([&datagrams] {
                for (const Bytes& datagram : datagrams) {
                  JudgeAnswer(datagram, datagram);
                  ErrorReply(datagram, JudgeQuery(datagram));
                  SizeWithoutOpt(datagram);
                }
              }).empty());
}

}  // namespace
