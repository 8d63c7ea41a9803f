// The pending requests, by identifier, for two workers and without a lock.
//
// A slot for each of the 65,536 identifiers holds null or a pointer to a record. Storing is a
// compare-exchange from null and removing one to null, so each has one winner; no operation loops
// on what the other worker does.
//
// What is removed may still be in another worker's hands. Therefore a worker *holds* the record
// that it works on, in a word of its own that the others can see:
//
//   finding   load the slot; write the pointer into the own word; load the slot again. Still there:
//             held. Gone: not found, which is what it was when the slot was emptied.
//   freeing   (by the winner of the removal, after it) look for the pointer in every word and
//             exchange it there for null. Done: that worker was using the record and frees it when
//             it lets go. In none: nobody can reach it any more, and it is freed at once.
//   letting   exchange the own word for null. It held the pointer still: nothing to do. It was null
//   go        already: the record has been removed meanwhile, and freeing it was left to us.
//
// At the most one removed record a worker is alive at any time, and none while the workers wait.
//
// An address that comes back is harmless. A word shows a pointer for a moment before the second
// look says whether it counts. If that record has been freed and its address given to a new one,
//   - the second look may see the new one in the same slot: then that is what is found and held;
//   - the new one's freeing may be left to this word: whose worker lets go, sees null, and frees
//     what is at the address. That is the new record, once.
// Removing by identity compares addresses too, but of a record that is held, which is not freed.
//
// Which orders are needed. Each side writes and then looks at what the other writes, and one at
// least has to see. That takes sequential consistency, on these four and on no other access; with
// acquire and release there both might look before their writes are seen, on x86-64 (the store and
// the second look) and on arm64, and the record would be used after its freeing.
//
//   finding   the store to the word             then   the second look at the slot
//   freeing   the emptying of the slot, in      then   the look at a word, also as the compare-
//             both forms of Remove                     exchange that fails
//
//   access                             what would do    why
//   a block's pointer, Insert's slot   release          the slots, the record, are seen filled
//   a block's pointer, the first look  acquire          the other side of that
//   the exchange of a word, by a       acquire and      what was done with the record comes before
//   freeing or by letting go           release          its freeing, whoever of the two frees
//   a look at a word, by a freeing     acquire          (sequential) the same
//   taking, giving back a word         acquire,         what one pass, or StartDnsSrv between
//                                      release          two, did is seen by the next
//   counting, iterating                acquire          only for who looks into the records
//
// Those to slots and words that would do with less have the default order all the same: one kind of
// order to think about.
#ifndef DNS_PROXY_MAC_PROXY_PENDING_REQUESTS_H_
#define DNS_PROXY_MAC_PROXY_PENDING_REQUESTS_H_

#include <array>
#include <atomic>
#include <cstddef>
#include <iterator>
#include <utility>

#include "dns_proxy_mac/proxy/dns_request.h"

enum class Worker { kQuery, kAnswer };

// Who stores, finds and removes: the workers, each inside a Pass; a single thread, without one,
// while no worker runs. Any thread may remove, count or iterate at any time, but only a Pass makes
// it safe to look into a record that another thread may remove.
//
// Memory: 2 KiB, and another 2 KiB for each 256 identifiers in a row that have been in use, 514 KiB
// at the most, kept until destruction. The records are the callers' until stored, then the table's.
class PendingRequests {
 public:
  class iterator;
  using const_iterator = iterator;
  class Pass;
  class NoPass;

  PendingRequests() = default;

  // Gives the slots back. The records must have been removed.
  ~PendingRequests();

  PendingRequests(const PendingRequests&) = delete;
  PendingRequests& operator=(const PendingRequests&) = delete;

  // Stores `request` under its QueryID and owns it from now on. False, and nothing changed, when
  // the identifier is taken. The caller must not look into a stored record without finding it
  // again.
  bool Insert(DnsRequest* request);

  // The record under `id`, or end(). Inside a Pass it stays valid until this worker finds another
  // one, frees it or leaves the pass; it may have been removed from the table before that.
  iterator find(unsigned short id);

  // Empties the slot of `id`. The record that was in it, now the caller's to Free; null if none.
  DnsRequest* Remove(unsigned short id);

  // Empties the slot of `id` if `request` is what it holds; true if so. By identity, because the
  // identifier may have been given to another request since this one was found.
  bool Remove(unsigned short id, const DnsRequest* request);

  // Frees a record that this thread has removed: at once, or through the worker that holds it.
  void Free(DnsRequest* request);

  // A look at the slots, one after the other, in the order of the identifiers.
  std::size_t size() const;
  bool empty() const;
  iterator begin() const;
  iterator end() const;
  const_iterator cbegin() const;
  const_iterator cend() const;

  // 1 if a record is pending under `id`, else 0.
  std::size_t count(unsigned short id) const;

 private:
  static constexpr int kSlotsInBlock = 256;
  static constexpr int kBlocks = 256;
  static constexpr int kSlots = kBlocks * kSlotsInBlock;

  using Slot = std::atomic<DnsRequest*>;
  using Block = std::array<Slot, kSlotsInBlock>;

  // The slot of `id`: null when no identifier of its block has been in use.
  Slot* SlotOf(int id) const;

  // The slot of `id`, its block made if need be.
  Slot& MakeSlot(unsigned short id);

  // The identifier, `from` or above, of the first slot that is not empty, and what it holds; kSlots
  // and null if there is none.
  std::pair<int, DnsRequest*> NextPending(int from) const;

  // One for each pass that can be under way at a time: the two workers', and two more.
  struct Word {
    bool Take();  // false if it is taken
    void GiveBack();

    std::atomic<bool> taken{false};

    // What is held: written by who has taken the word, and set to null by who leaves it a freeing.
    std::atomic<DnsRequest*> held{nullptr};
  };
  static constexpr std::size_t kWords = 4;

  // A word that was free, `first` if possible. Waits for one if there is none.
  Word& TakeWord(std::size_t first);

  // A block, once there, stays.
  std::array<std::atomic<Block*>, kBlocks> blocks_{};

  std::array<Word, kWords> words_{};

  // A NoPass waits for the words, or has them: no pass takes another one first.
  std::atomic<bool> closing_{false};
};

// A worker's time with the table: one datagram, from behind its receipt to the handler's return. At
// the most one at a time on a thread.
//
// Of several threads that act as one worker, which only a second StartDnsSrv in one process leads
// to, each gets a word of its own. Where more threads are in a pass than there are words, one waits
// until another's pass ends.
class PendingRequests::Pass {
 public:
  Pass(PendingRequests& requests, Worker worker);

  // Lets go of what is held.
  ~Pass();

  Pass(const Pass&) = delete;
  Pass& operator=(const Pass&) = delete;

 private:
  friend class PendingRequests;

  // The pass that this thread is in on `requests`, or null.
  static Pass* Current(const PendingRequests& requests);

  // True if `request`, just seen in `slot`, could be held there; what was held before is let go.
  bool Hold(DnsRequest* request, const Slot& slot);
  void LetGo();

  // Forgets `request`, which this thread has removed, if it is what is held.
  void Forget(const DnsRequest* request);

  static thread_local Pass* current_;

  PendingRequests& requests_;
  Word& word_;
  DnsRequest* held_ = nullptr;  // what word_.held was set to
};

// While one exists there is no pass: it has waited for those under way, and has taken every word.
// Not inside a Pass.
class PendingRequests::NoPass {
 public:
  explicit NoPass(PendingRequests& requests);
  ~NoPass();

  NoPass(const NoPass&) = delete;
  NoPass& operator=(const NoPass&) = delete;

 private:
  PendingRequests& requests_;
};

// A position: the identifier and the record as they were when the position was made, so that
// `position->second` is one and the same pointer however often it is read.
class PendingRequests::iterator {
 public:
  using iterator_category = std::input_iterator_tag;
  using value_type = std::pair<unsigned short, DnsRequest*>;
  using difference_type = std::ptrdiff_t;
  using pointer = const value_type*;
  using reference = const value_type&;

  // The end of no table.
  iterator() : iterator(nullptr, {kSlots, nullptr}) {}

  reference operator*() const { return entry_; }
  pointer operator->() const { return &entry_; }

  iterator& operator++() {
    *this = iterator(requests_, requests_->NextPending(index_ + 1));
    return *this;
  }
  iterator operator++(int) {
    const iterator before = *this;
    ++*this;
    return before;
  }

  friend bool operator==(const iterator& a, const iterator& b) {
    return a.requests_ == b.requests_ && a.index_ == b.index_;
  }
  friend bool operator!=(const iterator& a, const iterator& b) { return !(a == b); }

 private:
  friend class PendingRequests;

  iterator(const PendingRequests* requests, std::pair<int, DnsRequest*> found)
      : requests_(requests),
        index_(found.first),
        entry_(static_cast<unsigned short>(found.first), found.second) {}

  const PendingRequests* requests_;
  int index_;  // the identifier; kSlots at the end
  value_type entry_;
};

#endif  // DNS_PROXY_MAC_PROXY_PENDING_REQUESTS_H_
