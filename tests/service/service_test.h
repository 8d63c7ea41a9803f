// The fixture of every test of the running service: verbs for its flows.
#ifndef TESTS_SERVICE_SERVICE_TEST_H_
#define TESTS_SERVICE_SERVICE_TEST_H_

#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "tests/support/isolation.h"
#include "tests/support/messages.h"
#include "tests/support/patience.h"
#include "tests/support/service_under_test.h"
#include "tests/support/trace_texts.h"
#include "tests/support/udp_peer.h"

namespace service {

using namespace support;  // the words that these tests speak

// What the servers answer with.
inline const Bytes kAddress = {192, 0, 2, 7};

class ServiceTest : public testing::Test {
 protected:
  void SetUp() override { SKIP_UNLESS_ISOLATED(); }

  // Starts the service and waits until it can be asked.
  void Serve(const Plan& plan) {
    Start(plan);
    process_->WaitUntilStarted();
  }

  // Starts the service, whatever becomes of it.
  void Start(const Plan& plan) {
    process_.reset();
    process_ = std::make_unique<ServiceUnderTest>(plan);
  }

  const ServiceUnderTest& Process() const { return *process_; }

  // Waits until every datagram that applications have sent so far has been dealt with: a reverse
  // look-up, which the service answers by itself, is behind them in the queue. It takes an
  // identifier. The workers are back in their waits then.
  void SettleQueries() const {
    const Application last;
    last.Asks(Query(0x5E77, "1.0.0.127.in-addr.arpa", kTypeA));
    last.Hears();
    EXPECT_TRUE(Process().ComesToRest());
  }

  // Waits until every datagram that servers have sent to `asker` so far has been dealt with: one
  // from a stranger, which the service drops, is behind them in the queue.
  void SettleAnswers(const sockaddr_in& asker) {
    const UdpPeer stranger("127.0.0.99");
    const Bytes marker(static_cast<std::size_t>(kFirstMarker + markers_), 0);
    stranger.Send(marker, asker);
    ++markers_;
    EXPECT_TRUE(Process().Traces(trace::Received(marker.size(), "127.0.0.99")));
  }

 private:
  static constexpr int kFirstMarker = 12;

  std::unique_ptr<ServiceUnderTest> process_;
  int markers_ = 0;
};

}  // namespace service

#endif  // TESTS_SERVICE_SERVICE_TEST_H_
