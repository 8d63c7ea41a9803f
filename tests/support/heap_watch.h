// What becomes of the records on the heap, and of any one block there: the executable counts the
// blocks of a record's size and tells of each block that a test watches, in its own operator new
// and delete or, with a sanitizer, in the hooks of that one's allocator. The record itself is the
// program's, unchanged.
#ifndef TESTS_SUPPORT_HEAP_WATCH_H_
#define TESTS_SUPPORT_HEAP_WATCH_H_

#include <atomic>
#include <functional>

#include "dns_proxy_mac/proxy/dns_request.h"

namespace support {

// Since the process began. Any thread; exact while no other thread makes or frees records.
long RecordsMade();
long RecordsFreed();

inline long RecordsAlive() { return RecordsMade() - RecordsFreed(); }

// Whether a block that operator new made has been given back, and how often. Two at a time.
class FreeWatch {
 public:
  // `onFree` runs within the first freeing.
  explicit FreeWatch(const void* block, std::function<void()> onFree = {});

  // Watches the text of `request`'s name, which has to be longer than a string keeps within itself:
  // the record's destructor frees it, wherever the record's own memory goes.
  explicit FreeWatch(const DnsRequest& request, std::function<void()> onFree = {});

  ~FreeWatch();

  FreeWatch(const FreeWatch&) = delete;
  FreeWatch& operator=(const FreeWatch&) = delete;

  // How often the block has been freed since. Once its address is given out again the watch is
  // over.
  int Count() const { return count_; }

 private:
  friend void TellFreeWatches(const void* block, bool wasFreed);

  const void* block_;
  std::function<void()> onFree_;
  std::atomic<int> count_{0};
};

}  // namespace support

#endif  // TESTS_SUPPORT_HEAP_WATCH_H_
