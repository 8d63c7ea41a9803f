// Whether a block of the heap has been given back, and how often.
#ifndef TESTS_UNIT_FREE_WATCH_H_
#define TESTS_UNIT_FREE_WATCH_H_

#include <atomic>
#include <functional>

#include "dns_proxy_mac/proxy/dns_request.h"

// Watches one block that operator new made; one watch at a time. The executable's operator delete
// (free_watch.cpp) tells it.
class FreeWatch {
 public:
  explicit FreeWatch(const void* block, std::function<void()> onFree = {});

  // Watches the text of `request`'s name, which has to be longer than a string keeps within itself:
  // the record's destructor frees it, wherever the record's own memory goes.
  // `onFree` runs within the first freeing.
  explicit FreeWatch(const DnsRequest& request, std::function<void()> onFree = {});

  ~FreeWatch();

  FreeWatch(const FreeWatch&) = delete;
  FreeWatch& operator=(const FreeWatch&) = delete;

  // How often the block has been freed since.
  int Count() const { return count_; }

  // From now on the freeing of `block` writes `text` to standard error. For exit tests; two blocks
  // at the most.
  static void Announce(const void* block, const char* text);

  // Called by operator new and operator delete. Once its address is given out again the watch is
  // over.
  static void Made(void* block);
  static void Freed(const void* block);

 private:
  static std::atomic<FreeWatch*> current_;

  const void* block_;
  std::function<void()> onFree_;
  std::atomic<int> count_{0};
};

#endif  // TESTS_UNIT_FREE_WATCH_H_
