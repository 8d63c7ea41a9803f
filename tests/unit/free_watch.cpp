#include "tests/unit/free_watch.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

namespace {

struct Announcement {
  const void* block;
  const char* text;
};
Announcement announcements[2];

}  // namespace

std::atomic<FreeWatch*> FreeWatch::current_{nullptr};

FreeWatch::FreeWatch(const void* block, std::function<void()> onFree)
    : block_(block), onFree_(std::move(onFree)) {
  current_ = this;
}

FreeWatch::FreeWatch(const DnsRequest& request, std::function<void()> onFree)
    : FreeWatch(request.strDomain.data(), std::move(onFree)) {}

FreeWatch::~FreeWatch() { current_ = nullptr; }

void FreeWatch::Announce(const void* block, const char* text) {
  announcements[announcements[0].block == nullptr ? 0 : 1] = {block, text};
}

void FreeWatch::Made(void* block) {
  FreeWatch* const watch = current_;
  if (watch != nullptr && watch->block_ == block) {
    current_ = nullptr;
  }
}

void FreeWatch::Freed(const void* block) {
  FreeWatch* const watch = current_;
  if (watch != nullptr && watch->block_ == block) {
    if (++watch->count_ == 1 && watch->onFree_) {
      watch->onFree_();
    }
  }
  for (const Announcement& announcement : announcements) {
    if (block != nullptr && announcement.block == block) {
      [[maybe_unused]] const ssize_t ignored =
          write(STDERR_FILENO, announcement.text, std::strlen(announcement.text));
    }
  }
}

#if defined(DNS_PROXY_SANITIZED)

// The sanitizers have an operator new and delete of their own, and tell of them. Declared here
// because g++ brings the function and no header for it.
extern "C" int __sanitizer_install_malloc_and_free_hooks(void (*onMade)(const volatile void*,
                                                                        std::size_t),
                                                         void (*onFreed)(const volatile void*));

namespace {

void OnMade(const volatile void* block, std::size_t /*size*/) {
  FreeWatch::Made(const_cast<void*>(block));
}

void OnFreed(const volatile void* block) { FreeWatch::Freed(const_cast<void*>(block)); }

[[maybe_unused]] const int hooks = __sanitizer_install_malloc_and_free_hooks(OnMade, OnFreed);

}  // namespace

#else

// All of the plain forms, so that what one makes another can free.

void* operator new(std::size_t size) {
  if (void* const block = std::malloc(size == 0 ? 1 : size)) {
    FreeWatch::Made(block);
    return block;
  }
  throw std::bad_alloc();
}

void operator delete(void* block) noexcept {
  FreeWatch::Freed(block);
  std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  FreeWatch::Freed(block);
  std::free(block);
}

#endif
