#include "tests/interleavings/explorer.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

namespace interleavings {

namespace {

alignas(DnsRequest) unsigned char pool[kRecords + 1][sizeof(DnsRequest)];

// A record's list of methods. Its freeing leaves it as it is: who is run again from the beginning
// reads what was read before.
alignas(std::max_align_t) unsigned char lists[kRecords + 1][128];

std::uint64_t HashOf(const void* bytes, std::size_t count) {
  std::uint64_t hash = 0x9E3779B97F4A7C15;
  const auto* const from = static_cast<const unsigned char*>(bytes);
  for (std::size_t i = 0; i < count; ++i) {
    hash = (hash ^ from[i]) * 0xD6E8FEB86659FD93;
    hash ^= hash >> 32;
  }
  return hash;
}

}  // namespace

Explorer& TheExplorer() {
  static Explorer explorer;
  return explorer;
}

unsigned char Step(Access access, int cell, unsigned char expected, unsigned char desired) {
  return TheExplorer().Step(access, cell, expected, desired);
}
void Yield() { TheExplorer().Yield(); }

unsigned char NumberOf(const void* record) {
  const auto* const byte = static_cast<const unsigned char*>(record);
  if (byte < pool[0] || byte >= pool[0] + sizeof(pool)) {
    return 0;
  }
  return static_cast<unsigned char>(static_cast<std::size_t>(byte - pool[0]) / sizeof(DnsRequest));
}

DnsRequest* Record(unsigned char number) {
  return number == 0 ? nullptr : reinterpret_cast<DnsRequest*>(pool[number]);
}

void Watch(PendingRequests& requests) {
  requests.MakeSlot(0);  // the block of slots is there from now on
  for (int id = 0; id < kIdentifiers; ++id) {
    requests.SlotOf(id)->Watch(id);
  }
  static_assert(PendingRequests::kWords == kWords);
  for (int word = 0; word < kWords; ++word) {
    requests.words_[static_cast<std::size_t>(word)].taken.Watch(kTaken + word);
    requests.words_[static_cast<std::size_t>(word)].held.Watch(kHeld + word);
  }
  requests.closing_.Watch(kClosing);
}

bool Explore(const char* name, bool (*scenarios)()) {
  const Explorer::Totals before = TheExplorer().Seen();
  const auto began = std::chrono::steady_clock::now();
  const bool good = scenarios();
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  const Explorer::Totals& after = TheExplorer().Seen();
  std::printf("%-34s %7ld scenarios %10ld states %8.1e interleavings %6.1f s\n", name,
              after.scenarios - before.scenarios, after.states - before.states,
              after.interleavings - before.interleavings, took.count());
  if (!good) {
    std::printf("%s\n", TheExplorer().Fault().c_str());
  }
  std::fflush(stdout);
  return good;
}

bool Explorer::Run(const std::vector<Program>& programs, int pending, unsigned quiet) {
  programs_ = &programs;
  quiet_ = quiet;
  paths_.clear();
  State start;
  std::memset(&start, 0, sizeof(start));
  for (int id = 0; id < pending; ++id) {
    start.cell[id] = static_cast<unsigned char>(id + 1);
    start.life[id] = Life::kAlive;
    start.identifier[id] = static_cast<unsigned char>(id);
  }
  const double paths = From(start);
  ++totals_.scenarios;
  totals_.states += static_cast<long>(paths_.size());
  totals_.interleavings += paths;
  return fault_.empty();
}

double Explorer::From(const State& state) {
  const std::uint64_t hash = HashOf(&state, sizeof(state));
  const auto [entry, isNew] = paths_.try_emplace(hash, 0);
  double& counted = entry->second;
  if (!isNew) {
    return counted;  // 0 for the state itself, which a waiting thread comes back to
  }
  double paths = 0;
  bool ended = true;
  for (int thread = 0; thread < static_cast<int>(programs_->size()); ++thread) {
    if (state.thread[thread].operation >= (*programs_)[static_cast<std::size_t>(thread)].size()) {
      continue;
    }
    ended = false;
    choices_ = 1;
    for (int choice = 0; choice < choices_; ++choice) {
      State next = state;
      Advance(next, thread, choice);
      const int choices = choices_;
      if (fault_.empty()) {
        road_.push_back(step_);
        paths += From(next);
        road_.pop_back();
      }
      if (!fault_.empty()) {
        return 0;
      }
      choices_ = choices;
    }
  }
  if (ended) {
    CheckEnd(state);
    paths = 1;
  }
  counted = paths;
  return paths;
}

void Explorer::Advance(State& state, int thread, int choice) {
  state_ = &state;
  thread_ = &state.thread[thread];
  choice_ = choice;
  choices_ = 1;
  replayed_ = 0;
  yields_ = 0;
  made_ = false;
  starting_ = false;
  deleting_ = 0;
  step_ = {thread, Access::kLoad, -1, 0, 0, 0};
  PendingRequests::Pass::current_ = nullptr;
  running_ = true;
  if (setjmp(stopped_) == 0) {
    (*programs_)[static_cast<std::size_t>(thread)][thread_->operation]();
    ++thread_->operation;
    thread_->steps = 0;
    std::memset(thread_->read, 0, sizeof(thread_->read));
  }
  running_ = false;
}

void Explorer::Stop() { longjmp(stopped_, 1); }

void Explorer::Fail(const char* what) {
  const bool wasRunning = std::exchange(running_, false);
  if (fault_.empty()) {
    road_.push_back(step_);
    for (const Made& step : road_) {
      static const char* const kNames[] = {"load",  "store", "exchange", "compare-exchange",
                                           "make",  "free",  "look",     "advance",
                                           "lists", "send"};
      char line[128];
      std::snprintf(line, sizeof(line), "thread %d: %s of %d, expecting %d, writing %d: read %d\n",
                    step.thread, kNames[static_cast<int>(step.access)], step.cell, step.expected,
                    step.desired, step.read);
      fault_ += line;
    }
    fault_ += what;
  }
  if (wasRunning) {
    Stop();
  }
}

void Explorer::WillDelete(const void* record) { deleting_ = NumberOf(record); }

void Explorer::Require(bool holds, const char* otherwise) {
  if (!holds) {
    Fail(otherwise);
  }
}

void Explorer::ReadLists() {
  Step(Access::kList, 0, 0, 1);
  Step(Access::kList, 0, 0, 0);
}

void Explorer::WriteLists() {
  Step(Access::kList, 1, 0, 1);
  Step(Access::kList, 1, 0, 0);
}

unsigned char Explorer::Make(State& state) {
  // An address that has been freed, whichever, or the first that was never given out.
  choices_ = 0;
  unsigned char made = 0;
  for (unsigned char i = 0; i < kRecords; ++i) {
    if (state.life[i] == Life::kAlive) {
      continue;
    }
    if (keepsAddresses_ && state.life[i] == Life::kFreed) {
      continue;
    }
    if (choices_++ == choice_) {
      made = static_cast<unsigned char>(i + 1);
    }
    if (state.life[i] == Life::kNever) {
      break;
    }
  }
  if (made == 0) {
    std::abort();  // kRecords is too small for the scenario
  }
  state.life[made - 1] = Life::kAlive;
  state.identifier[made - 1] = state.position[made - 1] = state.sent[made - 1] = 0;
  return made;
}

unsigned char Explorer::Step(Access access, int cell, unsigned char expected,
                             unsigned char desired) {
  if (!running_) {
    return 0;
  }
  if (replayed_ < thread_->steps) {
    lastMade_ = access == Access::kMake ? thread_->read[replayed_] : lastMade_;
    return thread_->read[replayed_++];
  }
  const bool isQuiet = access < Access::kMake ? (quiet_ >> cell & 1) != 0
                                              : access == Access::kMake && keepsAddresses_;
  if (made_ && !isQuiet) {
    Stop();
  }
  made_ = made_ || !isQuiet;
  step_.access = access;
  step_.cell = cell;
  step_.expected = expected;
  step_.desired = desired;
  State& state = *state_;
  unsigned char read = 0;
  switch (access) {
    case Access::kLoad:
      read = state.cell[cell];
      break;
    case Access::kStore:
      state.cell[cell] = desired;
      break;
    case Access::kExchange:
      read = state.cell[cell];
      state.cell[cell] = desired;
      break;
    case Access::kCompareExchange:
      read = state.cell[cell];
      if (read == expected) {
        state.cell[cell] = desired;
        if (cell < kIdentifiers && desired != 0) {  // stored, as it has been filled
          state.identifier[desired - 1] = static_cast<unsigned char>(Record(desired)->QueryID);
          state.position[desired - 1] = Record(desired)->CurrentDNSMethodIndex;
          state.sent[desired - 1] |= kStored;
        }
      }
      break;
    case Access::kMake:
      read = lastMade_ = Make(state);
      break;
    case Access::kFree:
      Require(state.life[cell - 1] == Life::kAlive, "a record is freed twice");
      state.life[cell - 1] = Life::kFreed;
      break;
    case Access::kLook:
    case Access::kAdvance:
      Require(state.life[cell - 1] == Life::kAlive, "a freed record is used");
      read = state.position[cell - 1];
      if (access == Access::kAdvance && read == expected) {
        state.position[cell - 1] = desired;
      }
      break;
    case Access::kSend:
      Require(state.life[cell - 1] == Life::kAlive, "a freed record is used to send");
      read = state.sent[cell - 1];
      state.sent[cell - 1] |= desired;
      break;
    case Access::kList: {
      unsigned char& inside = cell == 0 ? state.readers : state.writers;
      inside = static_cast<unsigned char>(inside + (desired != 0 ? 1 : -1));
      Require(state.writers == 0 || state.writers + state.readers == 1,
              "the lists change while they are read");
      break;
    }
  }
  step_.read = read;
  // A removal: of the record that the operation means?
  if (cell < kIdentifiers && (access == Access::kExchange || access == Access::kCompareExchange) &&
      desired == 0 && read != 0 && state.cell[cell] == 0) {
    Require(deleting_ == 0 || deleting_ == read, "another request is removed than the one found");
  }
  thread_->read[thread_->steps++] = read;
  if (thread_->steps == kSteps) {
    std::abort();  // kSteps is too small for the operation
  }
  replayed_ = thread_->steps;
  return read;
}

void Explorer::Yield() {
  ++yields_;
  if (!made_) {
    return;
  }
  if (starting_) {  // the failed look at a word is forgotten, and made again
    thread_->read[--thread_->steps] = 0;
    Stop();
  }
  if (yields_ == kWords) {  // a pass that has tried every word begins anew
    thread_->steps = 0;
    std::memset(thread_->read, 0, sizeof(thread_->read));
    Stop();
  }
}

void Explorer::CheckEnd(const State& state) {
  state_ = const_cast<State*>(&state);
  thread_ = state_->thread;
  step_ = {};
  for (int i = 0; i < kRecords; ++i) {
    const bool inTable = state.cell[0] == i + 1 || state.cell[1] == i + 1;
    Require(inTable == (state.life[i] == Life::kAlive),
            inTable ? "a freed record is in the table" : "a record is lost");
    Require(!inTable || state.cell[state.identifier[i]] == i + 1, "a record under another's key");
    if (atEnd_ != nullptr && state.life[i] != Life::kNever) {
      atEnd_(static_cast<unsigned char>(i + 1), inTable, state.sent[i]);
    }
  }
  for (int word = 0; word < kWords; ++word) {
    Require(state.cell[kTaken + word] == 0 && state.cell[kHeld + word] == 0, "a word is left");
  }
}

}  // namespace interleavings

// A record's memory, and its list's, is the explorer's while it runs.

void* operator new(std::size_t size) {
  if (size == sizeof(DnsRequest) && interleavings::TheExplorer().Running()) {
    return interleavings::Record(interleavings::Step(interleavings::Access::kMake, -1, 0, 0));
  }
  if (interleavings::TheExplorer().Running()) {
    if (size > sizeof(interleavings::lists[0])) {
      std::abort();  // no list of methods, or one that is too long
    }
    return interleavings::lists[interleavings::TheExplorer().LastMade()];
  }
  if (void* const block = std::malloc(size == 0 ? 1 : size)) {
    return block;
  }
  throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
  if (const unsigned char record = interleavings::NumberOf(block)) {
    interleavings::Step(interleavings::Access::kFree, record, 0, 0);
    return;
  }
  const auto* const byte = static_cast<const unsigned char*>(block);
  if (byte >= interleavings::lists[0] &&
      byte < interleavings::lists[0] + sizeof(interleavings::lists)) {
    return;
  }
  std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept { operator delete(block); }
