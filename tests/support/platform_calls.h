// The platform calls that the program makes, in the hands of a test.
//
// An executable that is linked with test_platform_calls defines these calls itself, so that the
// program's code comes here. Each call goes on to the system's own until a test replaces it:
//
//   const Failing failing(platform::socket, 2, -1, EMFILE);            // the second call fails
//   const Replaced wait(platform::select, [](auto...) { return 0; });  // every call is this
//
// A replacement is made and ended while no other thread makes the call.
#ifndef TESTS_SUPPORT_PLATFORM_CALLS_H_
#define TESTS_SUPPORT_PLATFORM_CALLS_H_

#include <dlfcn.h>
#include <pthread.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>

namespace support {

template <typename Signature>
class PlatformCall;

template <typename Result, typename... Arguments>
class PlatformCall<Result(Arguments...)> {
 public:
  using Function = std::function<Result(Arguments...)>;

  // Constant, because the call may be made before static initialisation.
  constexpr explicit PlatformCall(const char* name) : name_(name) {}

  PlatformCall(const PlatformCall&) = delete;
  PlatformCall& operator=(const PlatformCall&) = delete;

  // What the program gets.
  Result Call(Arguments... arguments) {
    if (Function* const replacement = replacement_.load(std::memory_order_acquire)) {
      return (*replacement)(arguments...);
    }
    return System(arguments...);
  }

  // The system's own, or the sanitizer's that stands before it.
  Result System(Arguments... arguments) {
    SystemFunction function = system_.load(std::memory_order_acquire);
    if (function == nullptr) {
      function = Resolve();
      system_.store(function, std::memory_order_release);
    }
    return function(arguments...);
  }

  // Makes `replacement` (not null: a function; null: none) what Call does, and returns the former.
  Function* Replace(Function* replacement) {
    return replacement_.exchange(replacement, std::memory_order_acq_rel);
  }

 private:
  using SystemFunction = Result (*)(Arguments...);

  SystemFunction Resolve() const {
    // clang's runtimes are part of the executable and would be passed over by RTLD_NEXT.
    void* symbol = dlsym(RTLD_DEFAULT, (std::string("__interceptor_") + name_).c_str());
    if (symbol == nullptr) {
      symbol = dlsym(RTLD_NEXT, name_);
    }
    return reinterpret_cast<SystemFunction>(symbol);
  }

  const char* name_;
  std::atomic<Function*> replacement_{nullptr};
  std::atomic<SystemFunction> system_{nullptr};
};

namespace platform {

extern PlatformCall<int(int, int, int)> socket;
extern PlatformCall<int(int, const sockaddr*, socklen_t)> bind;
extern PlatformCall<int(int, int, int, const void*, socklen_t)> setsockopt;
extern PlatformCall<int(int, fd_set*, fd_set*, fd_set*, timeval*)> select;
extern PlatformCall<ssize_t(int, void*, std::size_t, int, sockaddr*, socklen_t*)> recvfrom;
extern PlatformCall<ssize_t(int, const void*, std::size_t, int, const sockaddr*, socklen_t)> sendto;
extern PlatformCall<int(int)> close;
extern PlatformCall<const char*(int, const void*, char*, socklen_t)> inet_ntop;
extern PlatformCall<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)> pthread_create;
extern PlatformCall<int(pthread_t, void**)> pthread_join;
extern PlatformCall<int(pthread_mutex_t*, const pthread_mutexattr_t*)> pthread_mutex_init;
extern PlatformCall<std::FILE*(const char*, const char*)> popen;
extern PlatformCall<char*(char*, int, std::FILE*)> fgets;
extern PlatformCall<int(std::FILE*)> pclose;
extern PlatformCall<int(const char*)> system;
extern PlatformCall<int(const char*)> remove;

}  // namespace platform

// While it lives, `call` is `function`. The last one made is the first one ended.
template <typename Signature>
class Replaced {
 public:
  Replaced(PlatformCall<Signature>& call, std::type_identity_t<std::function<Signature>> function)
      : call_(call), function_(std::move(function)), former_(call.Replace(&function_)) {}
  ~Replaced() { call_.Replace(former_); }

  Replaced(const Replaced&) = delete;
  Replaced& operator=(const Replaced&) = delete;

 private:
  PlatformCall<Signature>& call_;
  std::function<Signature> function_;
  std::function<Signature>* former_;
};

// While it lives, the `which`th call (1 is the next one) returns `result` with `error` in errno,
// and every other one is the system's own.
template <typename Signature>
class Failing;

template <typename Result, typename... Arguments>
class Failing<Result(Arguments...)> {
 public:
  Failing(PlatformCall<Result(Arguments...)>& call, int which, std::type_identity_t<Result> result,
          int error)
      : replaced_(call, [this, &call, which, result, error](Arguments... arguments) -> Result {
          if (calls_.fetch_add(1) + 1 == which) {
            errno = error;
            return result;
          }
          return call.System(arguments...);
        }) {}

  // How often the call has been made.
  int Calls() const { return calls_; }

 private:
  std::atomic<int> calls_{0};
  Replaced<Result(Arguments...)> replaced_;
};

template <typename Result, typename... Arguments, typename Given>
Failing(PlatformCall<Result(Arguments...)>&, int, Given, int) -> Failing<Result(Arguments...)>;

}  // namespace support

#endif  // TESTS_SUPPORT_PLATFORM_CALLS_H_
