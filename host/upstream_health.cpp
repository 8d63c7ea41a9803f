#include "host/upstream_health.h"

#include <algorithm>

void UpstreamHealth::AskSoon(TimePoint now) {
  if (open_.empty()) {
    due_ = now;
  }
}

void UpstreamHealth::Asked(TimePoint now, std::uint16_t id, Milliseconds interval) {
  interval_ = interval;
  if (!silent_ && open_.size() >= kSilentQuestions && now - open_.front().at >= kSilentAfter) {
    silent_ = true;
  }
  if (silent_) {
    if (!open_.empty()) {
      answersInRow_ = 0;
      open_.clear();
    }
    due_ = now + interval;
  } else {
    due_ = now + kDoubtInterval;
  }
  open_.push_back({id, now});
}

void UpstreamHealth::Answered(TimePoint now, std::uint16_t id) {
  const auto question = std::find_if(open_.begin(), open_.end(),
                                     [id](const Question& open) { return open.id == id; });
  if (question == open_.end() || now - question->at > kTimeout) {
    return;
  }
  roundTrip_ = std::chrono::duration_cast<Milliseconds>(now - question->at);
  open_.clear();
  due_ = now + interval_;
  if (silent_ && ++answersInRow_ >= kTrustedAnswers) {
    silent_ = false;
    answersInRow_ = 0;
  }
}
