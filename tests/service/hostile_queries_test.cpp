// Hostile datagrams to the socket for applications. Each has the outcome that the rules say and no
// other: one that is served gets the answer meant for it, one that ends the query thread gets none,
// and the service is started anew.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tests/service/hostile_datagrams.h"
#include "tests/service/query_rules.h"
#include "tests/service/service_test.h"
#include "tests/support/run_length.h"

namespace service {
namespace {

const std::map<std::string, Bytes> kHostMap = {{"mapped.example", {10, 1, 2, 3}}};
const Plan kPlan = {
    .servers = {"127.0.0.2"}, .hostMaps = {{"mapped.example", "10.1.2.3"}}, .traced = false};

class HostileQueries : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    if (!IsSkipped()) {
      server_.emplace("127.0.0.2");
      ServeAnew();
    }
  }

  // Sends `datagram`, from one application after the other, and notes what has to come of it.
  void Send(const Bytes& datagram) {
    if (HasFailure()) {
      return;  // the first one counts, and each wait for what does not come is long
    }
    const Verdict verdict = Judge(datagram, kHostMap);
    if (verdict.fate == Fate::kEndsTheThread) {
      CheckAll();
      SendTheLast(datagram);
      return;
    }
    const std::size_t sender = nextSender_++ % applications_.size();
    applications_[sender].Asks(datagram);
    if (verdict.fate == Fate::kForwarded) {
      forwarded_.push_back({verdict.datagram, nextId_, sender});
    } else {
      expected_[sender].push_back(verdict.datagram);
    }
    ++nextId_;
    ++datagrams_;
    waitingBytes_ += datagram.size();
    if (nextSender_ % kAtOnce == 0 || waitingBytes_ > kBytesAtOnce) {
      CheckAll();
    }
  }

  // All that was sent has come to what it had to, and to nothing else.
  void CheckAll() {
    for (const Forwarded& query : forwarded_) {
      EXPECT_EQ(server_->IsAsked(), UnderProxyId(query.datagram, query.id));
      // An answer of its own: the query, with a record counted.
      const Bytes answer = WithAnswerCount(query.datagram, 1);
      server_->Answers(UnderProxyId(answer, query.id));
      expected_[query.sender].push_back(answer);
    }
    EXPECT_TRUE(server_->HasNotBeenAsked());
    for (std::size_t i = 0; i < applications_.size(); ++i) {
      // The two threads answer in any order.
      std::vector<Bytes> heard;
      for (std::size_t n = 0; n < expected_[i].size(); ++n) {
        heard.push_back(applications_[i].Hears());
      }
      EXPECT_TRUE(applications_[i].HasHeardNothing());
      std::sort(heard.begin(), heard.end());
      std::sort(expected_[i].begin(), expected_[i].end());
      EXPECT_EQ(heard, expected_[i]);
      expected_[i].clear();
    }
    forwarded_.clear();
    waitingBytes_ = 0;
    EXPECT_FALSE(HasFailure()) << "after " << datagrams_ << " datagrams";
  }

  int Datagrams() const { return datagrams_; }
  int Restarts() const { return restarts_; }

 private:
  // What the service's socket has room for at once, with what the system counts beside the bytes.
  static constexpr std::size_t kAtOnce = 64;
  static constexpr std::size_t kBytesAtOnce = 48 * 1024;

  struct Forwarded {
    Bytes datagram;
    unsigned short id;
    std::size_t sender;
  };

  void ServeAnew() {
    Serve(kPlan);
    SettleQueries();
    nextId_ = 1;  // the settling has taken the first
    threads_ = Process().Threads();
  }

  // `datagram` ends the query thread: nothing is answered, nothing forwarded, the call goes on.
  void SendTheLast(const Bytes& datagram) {
    applications_[0].Asks(datagram);
    ++datagrams_;
    EXPECT_TRUE(Eventually([this] { return Process().Threads() < threads_; }))
        << "served: " << support::HexText(datagram);
    EXPECT_EQ(Process().Threads(), threads_ - 1);
    EXPECT_FALSE(Process().HasReturned());
    EXPECT_TRUE(applications_[0].HasHeardNothing());
    EXPECT_TRUE(server_->HasNotBeenAsked());
    ServeAnew();
    ++restarts_;
  }

  std::optional<Server> server_;
  std::array<Application, 8> applications_;
  std::size_t nextSender_ = 0;
  unsigned short nextId_ = 0;
  int threads_ = 0;
  int datagrams_ = 0;
  int restarts_ = 0;

  // Since the last check.
  std::array<std::vector<Bytes>, 8> expected_;
  std::vector<Forwarded> forwarded_;
  std::size_t waitingBytes_ = 0;
};

// Queries that go on to any length: mapped, reverse, and with labels up to their end.
std::vector<Bytes> EndlessQueries() {
  std::vector<Bytes> queries = {Query(0x1111, "mapped.example"),
                                Query(0x2222, "mapped.example", 28),
                                Query(0x3333, "1.0.168.192.in-addr.arpa")};
  Bytes labels = support::DnsMessageBuilder().Id(0x4444).QuestionCount(1).Build();
  while (labels.size() < 8193) {
    labels.push_back(static_cast<unsigned char>(1 + labels.size() % 9));
    labels.insert(labels.end(), labels.back(), 'x');
  }
  queries.push_back(labels);
  for (Bytes& query : queries) {
    query.resize(8193);
  }
  return queries;
}

TEST_F(HostileQueries, OfEveryLengthAreServedOrEndTheQueryThreadByTheRules) {
  for (const Bytes& endless : EndlessQueries()) {
    for (std::size_t length = 0; length <= 600; ++length) {
      Send(Bytes(endless.begin(), endless.begin() + static_cast<std::ptrdiff_t>(length)));
    }
    for (const std::size_t length : {8174U, 8175U, 8176U, 8177U, 8190U, 8191U, 8192U, 8193U}) {
      Send(Bytes(endless.begin(), endless.begin() + static_cast<std::ptrdiff_t>(length)));
    }
  }
  CheckAll();
  EXPECT_GT(Restarts(), 4 * 12);
}

// What the question holds behind its first byte: nothing, one label's worth, more than any label's.
class HostileFirstLabelByte : public HostileQueries,
                              public testing::WithParamInterface<std::size_t> {};

TEST_P(HostileFirstLabelByte, OfEveryValueIsServedOrEndsTheQueryThreadByTheRules) {
  for (int first = 0; first <= 0xFF; ++first) {
    Bytes query = support::DnsMessageBuilder().Id(0x1234).QuestionCount(1).Build();
    query.push_back(static_cast<unsigned char>(first));
    query.resize(query.size() + GetParam(), 'y');
    Send(query);
  }
  CheckAll();
  // A zero and the 128 with the high bit; without a byte of the label the name is always empty.
  EXPECT_EQ(Restarts(), GetParam() == 0 ? 256 : 129);
}

INSTANTIATE_TEST_SUITE_P(BytesBehindIt, HostileFirstLabelByte, testing::Values(0, 30, 300),
                         testing::PrintToStringParamName());

TEST_F(HostileQueries, ByTheHundredThousandGetTheirOwnAnswersAndNoOther) {
  Dice dice(20240611);
  constexpr long kCount = support::Sized(150'000);
  while (Datagrams() < kCount && !HasFailure()) {
    const Bytes query = HostileQuery(dice, "mapped.example");
    // Of those that end the query thread, one in 50: each costs a start.
    if (Judge(query, kHostMap).fate != Fate::kEndsTheThread || dice.OnceIn(50)) {
      Send(query);
    }
  }
  CheckAll();
  EXPECT_GT(Restarts(), 0);
}

}  // namespace
}  // namespace service
