#include "tests/support/heap_watch.h"

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace support {

namespace {

// Relaxed: counting must not order what the threads under test do.
std::atomic<long> made{0};
std::atomic<long> freed{0};

std::array<std::atomic<FreeWatch*>, 2> watches;

// Puts `to` in the place of `from` in the list of watches; false if that is not there.
bool Exchange(FreeWatch* from, FreeWatch* to) {
  for (std::atomic<FreeWatch*>& watch : watches) {
    if (FreeWatch* expected = from; watch.compare_exchange_strong(expected, to)) {
      return true;
    }
  }
  return false;
}

}  // namespace

long RecordsMade() { return made.load(std::memory_order_relaxed); }
long RecordsFreed() { return freed.load(std::memory_order_relaxed); }

FreeWatch::FreeWatch(const void* block, std::function<void()> onFree)
    : block_(block), onFree_(std::move(onFree)) {
  if (!Exchange(nullptr, this)) {
    std::fputs("more blocks are watched than can be\n", stderr);
    std::abort();
  }
}

FreeWatch::FreeWatch(const DnsRequest& request, std::function<void()> onFree)
    : FreeWatch(request.strDomain.data(), std::move(onFree)) {}

FreeWatch::~FreeWatch() { Exchange(this, nullptr); }

void TellFreeWatches(const void* block, bool wasFreed) {
  for (const std::atomic<FreeWatch*>& entry : watches) {
    FreeWatch* const watch = entry.load(std::memory_order_acquire);
    if (watch == nullptr || watch->block_ != block) {
      continue;
    }
    if (!wasFreed) {
      Exchange(watch, nullptr);
    } else if (++watch->count_ == 1 && watch->onFree_) {
      watch->onFree_();
    }
  }
}

namespace {

void OnMade(const void* block, std::size_t size) {
  if (size == sizeof(DnsRequest)) {
    made.fetch_add(1, std::memory_order_relaxed);
  }
  TellFreeWatches(block, false);
}

void OnFreed(const void* block, std::size_t size) {
  if (size == sizeof(DnsRequest)) {
    freed.fetch_add(1, std::memory_order_relaxed);
  }
  TellFreeWatches(block, true);
}

}  // namespace

}  // namespace support

#if defined(DNS_PROXY_SANITIZED)

// The sanitizer's allocator stays in place: it tells of each block, and finds by itself what is
// freed twice or used afterwards.

// The runtimes' own declarations come with clang and not with g++.
extern "C" {

std::size_t __sanitizer_get_allocated_size(const volatile void* block);
void __sanitizer_malloc_hook(const volatile void* block, std::size_t size);
void __sanitizer_free_hook(const volatile void* block);

void __sanitizer_malloc_hook(const volatile void* block, std::size_t size) {
  support::OnMade(const_cast<const void*>(block), size);
}

void __sanitizer_free_hook(const volatile void* block) {
  if (block != nullptr) {
    support::OnFreed(const_cast<const void*>(block), __sanitizer_get_allocated_size(block));
  }
}

}  // extern "C"

#else

namespace {

// In front of each block, because a delete expression need not say a size.
struct alignas(__STDCPP_DEFAULT_NEW_ALIGNMENT__) BlockHead {
  std::size_t size;
  std::size_t state;
};
constexpr std::size_t kAlive = 0xA11FE;
constexpr std::size_t kFreed = 0xDEAD;

// What a freed record is filled with, so that a late reader sees no record in it.
constexpr int kFreedByte = 0xDD;

// And a new one, so that what the program does not fill is seen.
constexpr int kNewByte = 0xCD;

void* Allocate(std::size_t size) noexcept {
  auto* const head = static_cast<BlockHead*>(std::malloc(sizeof(BlockHead) + size));
  if (head == nullptr) {
    return nullptr;
  }
  *head = {size, kAlive};
  if (size == sizeof(DnsRequest)) {
    std::memset(head + 1, kNewByte, size);
  }
  support::OnMade(head + 1, size);
  return head + 1;
}

void* AllocateOrThrow(std::size_t size) {
  if (void* const block = Allocate(size)) {
    return block;
  }
  throw std::bad_alloc();
}

void Release(void* block) noexcept {
  if (block == nullptr) {
    return;
  }
  BlockHead* const head = static_cast<BlockHead*>(block) - 1;
  if (head->state != kAlive) {
    std::fputs("a block is freed that is not alive\n", stderr);
    std::abort();
  }
  head->state = kFreed;
  support::OnFreed(block, head->size);
  if (head->size == sizeof(DnsRequest)) {
    std::memset(block, kFreedByte, head->size);
  }
  std::free(head);
}

}  // namespace

void* operator new(std::size_t size) { return AllocateOrThrow(size); }
void* operator new[](std::size_t size) { return AllocateOrThrow(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept { return Allocate(size); }
void operator delete(void* block) noexcept { Release(block); }
void operator delete[](void* block) noexcept { Release(block); }
void operator delete(void* block, std::size_t) noexcept { Release(block); }
void operator delete[](void* block, std::size_t) noexcept { Release(block); }
void operator delete(void* block, const std::nothrow_t&) noexcept { Release(block); }
void operator delete[](void* block, const std::nothrow_t&) noexcept { Release(block); }

#endif
