#include "dns_proxy_mac/proxy/pending_requests.h"

#include <memory>

// The accesses to a slot and to a held_ word are sequentially consistent, which is what an atomic
// operation without a named order is. The others name theirs.

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
  for (std::atomic<DnsRequest*>& word : held_) {
    DnsRequest* expected = request;
    if (word.compare_exchange_strong(expected, nullptr)) {
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

thread_local PendingRequests::Pass* PendingRequests::Pass::current_ = nullptr;

PendingRequests::Pass::Pass(PendingRequests& requests, Worker worker)
    : requests_(requests), word_(requests.held_[static_cast<std::size_t>(worker)]) {
  current_ = this;
}

PendingRequests::Pass::~Pass() {
  LetGo();
  current_ = nullptr;
}

PendingRequests::Pass* PendingRequests::Pass::Current(const PendingRequests& requests) {
  return current_ != nullptr && &current_->requests_ == &requests ? current_ : nullptr;
}

bool PendingRequests::Pass::Hold(DnsRequest* request, const Slot& slot) {
  if (held_ == request) {
    return true;
  }
  LetGo();
  word_.store(request);
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
  if (request != nullptr && word_.exchange(nullptr) == nullptr) {
    requests_.Free(request);  // removed while it was held: it was left to us
  }
}

void PendingRequests::Pass::Forget(const DnsRequest* request) {
  if (held_ == request) {
    held_ = nullptr;
    word_.store(nullptr);
  }
}
