#include "tests/support/platform_calls.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <cstdlib>

// glibc declares most of its functions as never throwing, and a definition has to agree.
#if defined(__GLIBC__)
#define NEVER_THROWS noexcept
#else
#define NEVER_THROWS
#endif

namespace support::platform {

constinit PlatformCall<int(int, int, int)> socket("socket");
constinit PlatformCall<int(int, const sockaddr*, socklen_t)> bind("bind");
constinit PlatformCall<int(int, int, int, const void*, socklen_t)> setsockopt("setsockopt");
constinit PlatformCall<int(int, fd_set*, fd_set*, fd_set*, timeval*)> select("select");
constinit PlatformCall<ssize_t(int, void*, std::size_t, int, sockaddr*, socklen_t*)> recvfrom(
    "recvfrom");
constinit PlatformCall<ssize_t(int, const void*, std::size_t, int, const sockaddr*, socklen_t)>
    sendto("sendto");
constinit PlatformCall<int(int)> close("close");
constinit PlatformCall<const char*(int, const void*, char*, socklen_t)> inet_ntop("inet_ntop");
constinit PlatformCall<int(pthread_t*, const pthread_attr_t*, void* (*)(void*), void*)>
    pthread_create("pthread_create");
constinit PlatformCall<int(pthread_t, void**)> pthread_join("pthread_join");
constinit PlatformCall<int(pthread_mutex_t*, const pthread_mutexattr_t*)> pthread_mutex_init(
    "pthread_mutex_init");
constinit PlatformCall<std::FILE*(const char*, const char*)> popen("popen");
constinit PlatformCall<char*(char*, int, std::FILE*)> fgets("fgets");
constinit PlatformCall<int(std::FILE*)> pclose("pclose");
constinit PlatformCall<int(const char*)> system("system");
constinit PlatformCall<int(const char*)> remove("remove");

}  // namespace support::platform

namespace platform = support::platform;

extern "C" {

int socket(int family, int type, int protocol) NEVER_THROWS {
  return platform::socket.Call(family, type, protocol);
}

int bind(int sock, const sockaddr* address, socklen_t length) NEVER_THROWS {
  return platform::bind.Call(sock, address, length);
}

ssize_t recvfrom(int sock, void* buffer, std::size_t size, int flags, sockaddr* from,
                 socklen_t* fromLength) {
  return platform::recvfrom.Call(sock, buffer, size, flags, from, fromLength);
}

ssize_t sendto(int sock, const void* bytes, std::size_t size, int flags, const sockaddr* to,
               socklen_t toLength) {
  return platform::sendto.Call(sock, bytes, size, flags, to, toLength);
}

int close(int descriptor) { return platform::close.Call(descriptor); }

const char* inet_ntop(int family, const void* address, char* text, socklen_t size) NEVER_THROWS {
  return platform::inet_ntop.Call(family, address, text, size);
}

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) NEVER_THROWS {
  return platform::pthread_create.Call(thread, attributes, body, argument);
}

int pthread_join(pthread_t thread, void** result) {
  return platform::pthread_join.Call(thread, result);
}

int pthread_mutex_init(pthread_mutex_t* mutex, const pthread_mutexattr_t* attributes) NEVER_THROWS {
  return platform::pthread_mutex_init.Call(mutex, attributes);
}

std::FILE* popen(const char* command, const char* mode) {
  return platform::popen.Call(command, mode);
}

char* fgets(char* line, int size, std::FILE* stream) {
  return platform::fgets.Call(line, size, stream);
}

int pclose(std::FILE* stream) { return platform::pclose.Call(stream); }

int system(const char* command) { return platform::system.Call(command); }

int remove(const char* path) NEVER_THROWS { return platform::remove.Call(path); }

}  // extern "C"

// With the linkage of its declaration: C on glibc, but Apple's header has it outside extern "C", by
// a symbol name of its own.
int setsockopt(int sock, int level, int name, const void* value, socklen_t length) NEVER_THROWS {
  return platform::setsockopt.Call(sock, level, name, value, length);
}

int select(int count, fd_set* readable, fd_set* writable, fd_set* failed, timeval* timeout) {
  return platform::select.Call(count, readable, writable, failed, timeout);
}
