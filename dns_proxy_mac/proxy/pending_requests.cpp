#include "dns_proxy_mac/proxy/pending_requests.h"

#include <memory>
#include <thread>

// The accesses to a slot and to what a word holds are sequentially consistent, which is what an
// atomic operation without a named order is. The others name theirs.

PendingRequests::~PendingRequests() {
  for (const std::atomic<Block*>& block : blocks_) {
    delete block.load(std::memory_order_acquire);
  }
}

bool PendingRequests::Insert(DnsRequest* request) {
  DnsRequest* empty = nullptr;
  return MakeSlot(request->QueryID).compare_exchange_strong(empty, request);
}

PendingRequests::iterator PendingRequests::find(unsigned short id) {
  const Slot* const slot = SlotOf(id);
  DnsRequest* const request = slot == nullptr ? nullptr : slot->load();
  if (request == nullptr) {
    return end();
  }
  Pass* const pass = Pass::Current(*this);
  if (pass != nullptr && !pass->Hold(request, *slot)) {
    return end();
  }
  return iterator(this, {id, request});
}

DnsRequest* PendingRequests::Remove(unsigned short id) {
  Slot* const slot = SlotOf(id);
  return slot == nullptr ? nullptr : slot->exchange(nullptr);
}

bool PendingRequests::Remove(unsigned short id, const DnsRequest* request) {
  Slot* const slot = SlotOf(id);
  auto* expected = const_cast<DnsRequest*>(request);
  return slot != nullptr && slot->compare_exchange_strong(expected, nullptr);
}

void PendingRequests::Free(DnsRequest* request) {
  if (Pass* const pass = Pass::Current(*this)) {
    pass->Forget(request);
  }
  for (Word& word : words_) {
    DnsRequest* expected = request;
    // Looked at before it is exchanged: hardly ever is it there, and a look is cheap.
    if (word.held.load() == request && word.held.compare_exchange_strong(expected, nullptr)) {
      return;  // left to the worker that holds it
    }
  }
  delete request;
}

std::size_t PendingRequests::size() const {
  std::size_t count = 0;
  for (int id = NextPending(0).first; id < kSlots; id = NextPending(id + 1).first) {
    ++count;
  }
  return count;
}

bool PendingRequests::empty() const { return NextPending(0).second == nullptr; }

PendingRequests::iterator PendingRequests::begin() const { return iterator(this, NextPending(0)); }

PendingRequests::iterator PendingRequests::end() const { return iterator(this, {kSlots, nullptr}); }

PendingRequests::const_iterator PendingRequests::cbegin() const { return begin(); }

PendingRequests::const_iterator PendingRequests::cend() const { return end(); }

std::size_t PendingRequests::count(unsigned short id) const {
  const Slot* const slot = SlotOf(id);
  return slot != nullptr && slot->load() != nullptr ? 1 : 0;
}

PendingRequests::Slot* PendingRequests::SlotOf(int id) const {
  Block* const block =
      blocks_[static_cast<std::size_t>(id / kSlotsInBlock)].load(std::memory_order_acquire);
  return block == nullptr ? nullptr : &(*block)[static_cast<std::size_t>(id % kSlotsInBlock)];
}

PendingRequests::Slot& PendingRequests::MakeSlot(unsigned short id) {
  Slot* const slot = SlotOf(id);
  if (slot != nullptr) {
    return *slot;
  }
  auto made = std::make_unique<Block>();
  Block* there = nullptr;
  if (blocks_[id / kSlotsInBlock].compare_exchange_strong(there, made.get())) {
    there = made.release();
  }
  return (*there)[id % kSlotsInBlock];
}

std::pair<int, DnsRequest*> PendingRequests::NextPending(int from) const {
  int id = from;
  while (id < kSlots) {
    const Slot* const slot = SlotOf(id);
    if (slot == nullptr) {
      id += kSlotsInBlock - id % kSlotsInBlock;  // on to the next block
      continue;
    }
    DnsRequest* const request = slot->load();
    if (request != nullptr) {
      return {id, request};
    }
    ++id;
  }
  return {kSlots, nullptr};
}

bool PendingRequests::Word::Take() {
  bool free = false;
  return taken.compare_exchange_strong(free, true, std::memory_order_acquire,
                                       std::memory_order_relaxed);
}

void PendingRequests::Word::GiveBack() { taken.store(false, std::memory_order_release); }

PendingRequests::Word& PendingRequests::TakeWord(std::size_t first) {
  for (std::size_t next = first;; ++next) {
    Word& word = words_[next % kWords];
    if (!closing_.load(std::memory_order_relaxed) && word.Take()) {
      return word;
    }
    std::this_thread::yield();
  }
}

thread_local PendingRequests::Pass* PendingRequests::Pass::current_ = nullptr;

PendingRequests::Pass::Pass(PendingRequests& requests, Worker worker)
    : requests_(requests), word_(requests.TakeWord(static_cast<std::size_t>(worker))) {
  current_ = this;
}

PendingRequests::Pass::~Pass() {
  LetGo();
  current_ = nullptr;
  word_.GiveBack();
}

PendingRequests::Pass* PendingRequests::Pass::Current(const PendingRequests& requests) {
  return current_ != nullptr && &current_->requests_ == &requests ? current_ : nullptr;
}

bool PendingRequests::Pass::Hold(DnsRequest* request, const Slot& slot) {
  if (held_ == request) {
    return true;
  }
  LetGo();
  word_.held.store(request);
  held_ = request;
  if (slot.load() == request) {
    return true;
  }
  LetGo();
  return false;
}

void PendingRequests::Pass::LetGo() {
  DnsRequest* const request = held_;
  held_ = nullptr;
  if (request != nullptr && word_.held.exchange(nullptr) == nullptr) {
    requests_.Free(request);  // removed while it was held: it was left to us
  }
}

void PendingRequests::Pass::Forget(const DnsRequest* request) {
  if (held_ == request) {
    held_ = nullptr;
    word_.held.store(nullptr);
  }
}

PendingRequests::NoPass::NoPass(PendingRequests& requests) : requests_(requests) {
  requests_.closing_.store(true, std::memory_order_relaxed);
  for (Word& word : requests_.words_) {
    while (!word.Take()) {
      std::this_thread::yield();
    }
  }
}

PendingRequests::NoPass::~NoPass() {
  requests_.closing_.store(false, std::memory_order_relaxed);
  for (Word& word : requests_.words_) {
    word.GiveBack();
  }
}
