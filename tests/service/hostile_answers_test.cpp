// Hostile datagrams to the socket for servers: under identifiers that are pending, answered, not
// yet in use; from the server that was asked, from another one, from strangers. Each has the
// outcome that the rules say, and no application hears what is not meant for it.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/service/hostile_datagrams.h"
#include "tests/service/service_test.h"
#include "tests/support/run_length.h"

namespace service {
namespace {

constexpr std::size_t kApplications = 16;

class HostileAnswers : public ServiceTest {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    if (!IsSkipped()) {
      servers_.emplace_back(std::make_unique<Server>("127.0.0.2"));
      servers_.emplace_back(std::make_unique<Server>("127.0.0.3"));
      otherPorts_.emplace_back(std::make_unique<UdpPeer>("127.0.0.2"));
      otherPorts_.emplace_back(std::make_unique<UdpPeer>("127.0.0.3"));
      stranger_ = std::make_unique<UdpPeer>("127.0.0.99");
      ServeAnew();
    }
  }

  void ServeAnew() {
    Serve({.servers = {"127.0.0.2", "127.0.0.3"}, .traced = false});
    nextId_ = 0;
  }

  // Every application asks once; all of it waits for the first server.
  void AskAll(Dice& dice) {
    for (std::size_t i = 0; i < kApplications; ++i) {
      const std::string name = dice.Label(1 + dice.Roll(40)) + ".example";
      const Bytes query = Query(dice.Number16(), name);
      applications_[i].Asks(query);
      ASSERT_EQ(servers_[0]->IsAsked(), UnderProxyId(query, nextId_));
      pending_[nextId_++] = {i, query, 0};
    }
  }

  // An identifier that a forger would try.
  unsigned short AnyId(Dice& dice) const {
    switch (dice.Roll(4)) {
      case 0:
        return dice.Number16();
      case 1:  // about to be used
        return static_cast<unsigned short>(nextId_ + dice.Roll(4));
      default:  // just used: pending, or answered by now
        return static_cast<unsigned short>(nextId_ - 1 - dice.Roll(kApplications));
    }
  }

  // Sends `answer`, a header at least, from any sender and notes what has to come of it.
  void SendFromAnyone(Dice& dice, const Bytes& answer) {
    const std::size_t server = dice.Roll(2);
    switch (dice.Roll(8)) {
      case 0:
        stranger_->Send(answer, servers_[0]->Asker());
        return;
      case 1:
        otherPorts_[server]->Send(answer, servers_[0]->Asker());
        break;
      default:
        servers_[server]->Send(answer, servers_[0]->Asker());
        break;
    }
    Expect(answer, server);
  }

  // Every pending query is answered by the server that has it, and all that was to come has come.
  void AnswerAndCheckAll() {
    const auto waiting = pending_;
    for (const auto& [id, request] : waiting) {
      const Bytes answer = UnderProxyId(AnswerTo(request.query, {192, 0, 2, 7}), id);
      servers_[request.server]->Send(answer, servers_[0]->Asker());
      Expect(answer, request.server);
    }
    for (const Bytes& query : secondIsAsked_) {
      const std::optional<Datagram> asked = servers_[1]->Receive();
      EXPECT_TRUE(asked && asked->bytes == query);
    }
    secondIsAsked_.clear();
    for (std::size_t i = 0; i < kApplications; ++i) {
      EXPECT_EQ(applications_[i].Hears(), expected_[i]);
    }
    for (std::size_t i = 0; i < kApplications; ++i) {
      EXPECT_TRUE(applications_[i].HasHeardNothing());
    }
    EXPECT_TRUE(servers_[0]->HasNotBeenAsked());
    EXPECT_TRUE(servers_[1]->HasNotBeenAsked());
  }

  // `datagram`, shorter than a header, ends the service, whoever sends it.
  void SendTheLast(Dice& dice, const Bytes& datagram) {
    (dice.OnceIn(2) ? *stranger_ : *servers_[0]).Send(datagram, servers_[0]->Asker());
    EXPECT_TRUE(Process().WaitForReturn().result);
    for (const Application& application : applications_) {
      EXPECT_TRUE(application.HasHeardNothing());
    }
    pending_.clear();
    ServeAnew();
  }

 private:
  struct Pending {
    std::size_t application;
    Bytes query;
    std::size_t server;  // that was asked last
  };

  // What comes of `answer` from the address of `server`.
  void Expect(const Bytes& answer, std::size_t server) {
    const auto found = std::find_if(pending_.begin(), pending_.end(), [&](const auto& entry) {
      return UnderProxyId(answer, entry.first) == answer;
    });
    if (found == pending_.end() || found->second.server != server) {
      return;
    }
    auto& [id, request] = *found;
    Bytes& expected = expected_[request.application];
    if (HasRecords(answer)) {
      expected = answer;
      expected.resize(std::min<std::size_t>(answer.size(), 8192));
      std::copy(request.query.begin(), request.query.begin() + 2, expected.begin());
    } else if (request.server == 0) {
      request.server = 1;
      secondIsAsked_.push_back(UnderProxyId(request.query, id));
      return;
    } else {
      expected = NoSuchName(request.query);
    }
    pending_.erase(found);
  }

  std::vector<std::unique_ptr<Server>> servers_;
  std::vector<std::unique_ptr<UdpPeer>> otherPorts_;  // of the same addresses
  std::unique_ptr<UdpPeer> stranger_;
  std::array<Application, kApplications> applications_;
  unsigned short nextId_ = 0;

  std::map<unsigned short, Pending> pending_;
  std::array<Bytes, kApplications> expected_;  // one answer each
  std::vector<Bytes> secondIsAsked_;
};

TEST_F(HostileAnswers, OfEveryLengthAreRelayedWholeOrEndTheAnswerThreadByTheRules) {
  std::vector<std::size_t> lengths = {8174, 8175, 8176, 8177, 8190, 8191, 8192, 8193};
  for (std::size_t length = 0; length <= 600; ++length) {
    lengths.push_back(length);
  }
  Server server("127.0.0.4");
  const Plan plan = {.servers = {"127.0.0.4"}, .traced = false};
  Serve(plan);
  for (const std::size_t length : lengths) {
    const Application application;
    application.Asks(Query(0x1234, "www.example"));
    Bytes answer = WithAnswerCount(server.IsAsked(), 1);
    answer.resize(length, 0xEE);
    server.Answers(answer);
    if (length < 12) {
      EXPECT_TRUE(Process().WaitForReturn().result) << length;
      EXPECT_TRUE(application.HasHeardNothing()) << length;
      Serve(plan);
    } else {
      answer.resize(std::min<std::size_t>(length, 8192));
      EXPECT_EQ(application.Hears(), UnderId(answer, 0x1234)) << length;
    }
    ASSERT_FALSE(HasFailure());
  }
}

TEST_F(HostileAnswers, ByTheHundredThousandReachNoOneTheyAreNotMeantFor) {
  Dice dice(20240614);
  constexpr long kCount = support::Sized(200'000);
  constexpr int kInARound = 40;
  for (int round = 0; round < kCount / kInARound; ++round) {
    AskAll(dice);
    for (int i = 0; i < kInARound; ++i) {
      const unsigned short id = AnyId(dice);
      SendFromAnyone(dice, UnderProxyId(HostileAnswer(dice), id));
    }
    AnswerAndCheckAll();
    if (dice.OnceIn(50)) {
      AskAll(dice);
      SendTheLast(dice, dice.Bytes(dice.Roll(12)));
    }
    ASSERT_FALSE(HasFailure()) << "in round " << round;
  }
}

// Queries and forged answers to them at the same time, so that an answer meets its query before it
// was stored, while it is dispatched, and after. From the right address it may win: then the
// application hears that answer under its own identifier. It never hears one for another query, and
// never a second one.
TEST_F(HostileAnswers, ForgedWhileTheQueriesArriveReachNoOtherApplication) {
  constexpr long kRounds = support::Sized(3000);
  constexpr unsigned short kQueries = 32;
  Server server("127.0.0.4");
  Serve({.servers = {"127.0.0.4"}, .hostMaps = {{"mapped.example", "10.1.2.3"}}, .traced = false});
  const UdpPeer stranger("127.0.0.98");
  const std::array<Application, kQueries> applications;

  applications[0].Asks(Query(0, "first.example"));
  server.Answers(WithAnswerCount(server.IsAsked(), 1));
  applications[0].Hears();

  // What is sent to identifier `id` says so behind its header.
  const auto answerFor = [](unsigned short id) {
    return UnderProxyId(
        support::DnsMessageBuilder().AnswerCount(1).Number16(id).Number32(0).Build(), id);
  };
  unsigned short nextId = 1;
  for (int round = 0; round < kRounds; ++round) {
    std::array<Bytes, kQueries> expected;
    for (unsigned short i = 0; i < kQueries; ++i) {
      const auto id = static_cast<unsigned short>(nextId + i);
      const auto appId = static_cast<unsigned short>(id * 31);
      const bool mapped = i % 8 == 0;
      const Bytes query = Query(appId, mapped ? "mapped.example" : "www.example");
      expected[i] =
          mapped ? HostAnswer(query, kTypeA, {10, 1, 2, 3}) : UnderId(answerFor(id), appId);
      const auto ahead = static_cast<unsigned short>(id + round % 4);
      server.Answers(answerFor(ahead));
      applications[i].Asks(query);
      server.Answers(answerFor(id));
      stranger.Send(answerFor(id), server.Asker());
    }
    nextId = static_cast<unsigned short>(nextId + kQueries);

    // Those that no forged answer has reached are answered now.
    std::array<int, kQueries> heard{};
    ASSERT_TRUE(Eventually([&] {
      while (const std::optional<Datagram> query = server.Arrived()) {
        unsigned short id;
        std::copy(query->bytes.begin(), query->bytes.begin() + 2,
                  reinterpret_cast<unsigned char*>(&id));
        server.Answers(answerFor(id));
      }
      for (std::size_t i = 0; i < kQueries; ++i) {
        while (const std::optional<Datagram> answer = applications[i].Arrived()) {
          EXPECT_EQ(answer->bytes, expected[i]);
          ++heard[i];
        }
      }
      return std::count(heard.begin(), heard.end(), 0) == 0;
    }));
    EXPECT_EQ(std::count(heard.begin(), heard.end(), 1), kQueries) << "answered twice";
    ASSERT_FALSE(HasFailure()) << "in round " << round;
  }
}

}  // namespace
}  // namespace service
