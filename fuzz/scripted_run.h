// One run of a handler or of the dispatch with scripted datagrams, and the check of what was sent.
#ifndef FUZZ_SCRIPTED_RUN_H_
#define FUZZ_SCRIPTED_RUN_H_

#include <cerrno>
#include <optional>
#include <vector>

#include "fuzz/ladder_model.h"
#include "fuzz/require.h"
#include "fuzz/trace_text.h"
#include "tests/support/scripted_datagrams.h"

namespace fuzz {

class ScriptedRun {
 public:
  explicit ScriptedRun(bool sendingFails) {
    if (sendingFails) {
      sent_.FailWith(ENETUNREACH);
    }
  }

  support::ArrivingDatagrams& Arriving() { return arriving_; }

  // Requires that exactly `expected` was given to the system, or nothing.
  void RequireSent(const std::optional<Sending>& expected) const {
    const std::vector<support::SentDatagram> all = sent_.All();
    Require(all.size() == (expected ? 1 : 0), "how many datagrams are sent");
    if (expected) {
      Require(all[0].sock == expected->sock, "the socket that is sent from");
      Require(all[0].bytes == expected->bytes, "the bytes that are sent");
      Require(all[0].address == expected->address, "where they are sent to");
      Require(all[0].flags == 0, "no flags");
    }
  }

 private:
  support::SentDatagrams sent_;
  support::ArrivingDatagrams arriving_;
  TraceText trace_;  // formatted, so that its arguments are read, and not looked at
};

}  // namespace fuzz

#endif  // FUZZ_SCRIPTED_RUN_H_
