#include "tests/stress/soak/world.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "tests/support/messages.h"
#include "tests/support/socket_addresses.h"

namespace soak {

namespace {

using support::IdOf;
using support::UdpPeer;
using support::UnderProxyId;

constexpr std::size_t kApplications = 250;
constexpr std::size_t kMostInFlight = 1000;

// Datagrams that may lie in a buffer of the service's: small ones take 768 bytes of its 212,992,
// the largest here 1,280. Noise stops at half of that, so that a right answer always finds room.
constexpr long kMostUnreceived = 100;
constexpr long kMostUnreceivedForNoise = 50;

// So many answers are collected before one is picked, so that they leave in another order.
constexpr std::size_t kShuffleAmong = 64;
constexpr long kDelay = 1000;  // in queries asked meanwhile

// Noise that has waited for so many queries is not sent any more: its identifier would come round
// again, and the service would rightly take a doubled answer for one to the new request.
constexpr long kNoiseLife = 10'000;

// Of a hundred.
constexpr unsigned kDelayed = 5;
constexpr unsigned kDoubled = 20;
constexpr unsigned kForged = 20;

// Far from any identifier in flight, and from any that is sent in the life of a forgery.
constexpr unsigned short kFarAhead = 30'000;

void Watch(int epoll, const UdpPeer& peer, std::size_t number) {
  epoll_event event = {};
  event.events = EPOLLIN;
  event.data.u64 = number;
  if (epoll_ctl(epoll, EPOLL_CTL_ADD, peer.Socket(), &event) != 0) {
    std::perror("soak: epoll");
    std::exit(1);
  }
}

bool SameButForId(const Bytes& a, const Bytes& b) {
  return a.size() == b.size() && std::equal(a.begin() + 2, a.end(), b.begin() + 2);
}

}  // namespace

World::World(const Questions& questions)
    : questions_(questions),
      epoll_(epoll_create1(EPOLL_CLOEXEC)),
      asking_(kApplications),
      service_(support::Ipv4Address("127.0.0.1", 53)),
      flights_(questions.Size()) {
  for (std::size_t application = 0; application < kApplications; ++application) {
    applications_.emplace_back("127.0.0.1");
    Watch(epoll_, applications_.back(), application);
  }
  for (std::size_t server = 0; server < kServers; ++server) {
    Watch(epoll_, servers_[server], kApplications + server);
  }
}

World::~World() { close(epoll_); }

void World::Ask(long queries, std::chrono::steady_clock::time_point deadline,
                std::chrono::seconds patience) {
  const long end = count_.asked + queries;
  bool asking = queries > 0;
  auto lastSign = std::chrono::steady_clock::now();
  long signs = 0;
  while (asking || inFlight_ > 0) {
    while (asking && inFlight_ < kMostInFlight &&
           queriesSent_ - queriesReceived_ < kMostUnreceived) {
      AskOne();
      asking = count_.asked < end;
    }
    // Enough to choose from, or nothing more to wait for.
    const bool idle = inFlight_ == kMostInFlight || !asking;
    while (HasSomethingToSend() && (answers_.size() >= kShuffleAmong || idle)) {
      SendOne();
    }
    ReceiveAll(10);

    const auto now = std::chrono::steady_clock::now();
    asking = asking && now < deadline;
    if (const long seen = count_.answered + queriesReceived_ + answersReceived_; seen != signs) {
      signs = seen;
      lastSign = now;
    }
    if (now - lastSign > patience) {
      count_.lost += static_cast<long>(inFlight_);
      return;
    }
  }
  // What is left is noise about questions that have landed. It must not reach later ones.
  noise_.clear();
}

void World::AskOne() {
  do {
    nextQuestion_ = (nextQuestion_ + 1) % questions_.Size();
  } while (flights_[nextQuestion_].inFlight);
  const std::size_t application = random_() % kApplications;
  Flight& flight = flights_[nextQuestion_];
  flight.inFlight = true;
  flight.application = application;
  flight.applicationId = static_cast<unsigned short>(random_());
  flight.queryNumber = ++queriesSent_;
  asking_[application].push_back(nextQuestion_);
  ++inFlight_;
  ++count_.asked;
  applications_[application].Send(
      UnderProxyId(questions_.At(nextQuestion_).query, flight.applicationId), service_);
}

bool World::HasSomethingToSend() const {
  const long unreceived = answersSent_ - answersReceived_;
  return (!answers_.empty() && unreceived < kMostUnreceived) ||
         (!noise_.empty() && unreceived < kMostUnreceivedForNoise);
}

void World::SendOne() {
  const bool noiseMay =
      !noise_.empty() && answersSent_ - answersReceived_ < kMostUnreceivedForNoise;
  std::vector<Outgoing>& from =
      answers_.empty() || (noiseMay && random_() % 3 == 0) ? noise_ : answers_;
  std::size_t chosen = random_() % from.size();
  if (from[chosen].notBefore > count_.asked) {
    // The delayed wait until there is nothing else.
    const auto due = std::find_if(from.begin(), from.end(), [this](const Outgoing& outgoing) {
      return outgoing.notBefore <= count_.asked;
    });
    chosen = due == from.end() ? chosen : static_cast<std::size_t>(due - from.begin());
  }
  std::swap(from[chosen], from.back());
  const Outgoing outgoing = std::move(from.back());
  from.pop_back();
  if (outgoing.noise != nullptr) {
    if (count_.asked - outgoing.made > kNoiseLife) {
      return;
    }
    ++(count_.*outgoing.noise);
  }

  ++answersSent_;
  if (outgoing.noise == nullptr) {
    flights_[outgoing.question].answerNumber = answersSent_;
    if (random_() % 100 < kDoubled) {
      noise_.push_back({outgoing.bytes, outgoing.from, 0, &Count::doubled, 0, count_.asked});
    }
  }
  outgoing.from->Send(outgoing.bytes, asker_);
}

void World::ReceiveAll(int timeoutMs) {
  std::array<epoll_event, 64> events;
  const int ready = epoll_wait(epoll_, events.data(), static_cast<int>(events.size()), timeoutMs);
  for (int i = 0; i < ready; ++i) {
    const std::size_t number = events[static_cast<std::size_t>(i)].data.u64;
    if (number < kApplications) {
      HearAll(number);
    } else {
      ServeAll(number - kApplications);
    }
  }
}

void World::HearAll(std::size_t application) {
  while (const std::optional<support::Datagram> heard = applications_[application].Arrived()) {
    const Bytes& answer = heard->bytes;
    const std::size_t question = questions_.NumberOf(answer);
    const bool asked = question < questions_.Size() && flights_[question].inFlight &&
                       flights_[question].application == application &&
                       flights_[question].applicationId == IdOf(answer);
    if (!asked || !SameButForId(answer, questions_.At(question).expected)) {
      ++count_.wrong;
      continue;
    }
    ++count_.answered;
    Land(question);
  }
}

// The answer to `question` has been seen: all that was sent before what led to it was received.
void World::Land(std::size_t question) {
  Flight& flight = flights_[question];
  queriesReceived_ = std::max(queriesReceived_, flight.queryNumber);
  answersReceived_ = std::max(answersReceived_, flight.answerNumber);
  std::vector<std::size_t>& asking = asking_[flight.application];
  asking.erase(std::find(asking.begin(), asking.end(), question));
  flight = {};
  --inFlight_;
}

void World::ServeAll(std::size_t server) {
  while (const std::optional<support::Datagram> asked = servers_[server].Arrived()) {
    const Bytes& query = asked->bytes;
    asker_ = asked->from;
    const std::size_t number = questions_.NumberOf(query);
    if (number == questions_.Size() || !flights_[number].inFlight ||
        !SameButForId(query, questions_.At(number).query) ||
        questions_.At(number).serverAnswers[server].empty()) {
      ++count_.garbled;
      continue;
    }
    queriesReceived_ = std::max(queriesReceived_, flights_[number].queryNumber);
    answersReceived_ = std::max(answersReceived_, flights_[number].answerNumber);
    Forge(server, query);
    Outgoing answer{UnderProxyId(questions_.At(number).serverAnswers[server], IdOf(query)),
                    &servers_[server],
                    number,
                    nullptr,
                    0,
                    count_.asked};
    if (random_() % 100 < kDelayed) {
      answer.notBefore = count_.asked + kDelay;
      ++count_.delayed;
    }
    answers_.push_back(std::move(answer));
  }
}

// Answers that the service drops: with the right identifier from where nobody was asked, and from a
// right server under an identifier that belongs to nothing.
void World::Forge(std::size_t server, const Bytes& query) {
  if (random_() % 100 >= kForged) {
    return;
  }
  const bool withRecord = random_() % 2 == 0;
  const bool strange = random_() % 2 == 0;
  const auto id = static_cast<unsigned short>(IdOf(query) + (strange ? 0 : kFarAhead));
  noise_.push_back({support::ForgedAnswer(id, withRecord), strange ? &stranger_ : &servers_[server],
                    0, &Count::forged, 0, count_.asked});
}

}  // namespace soak
