#include "host/child.h"

#include <fcntl.h>
#if defined(__linux__)
#include <malloc.h>
#endif
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "host/descriptors.h"
#include "host/log.h"

namespace {

// Where the child keeps what it was given, so that the service's sockets come right behind.
constexpr int kLine = 3;
constexpr int kTrace = 4;
constexpr int kFirstFree = 5;

// What new threads get was read from the stack limit when this process was started; elsewhere than
// on Linux it does not depend on the limit.
void LimitThreadStacks() {
#if defined(__linux__)
  // Well below the 40 MB above which the service's second wait for an ended thread would fault.
  constexpr std::size_t kMaxThreadStack = 8 * 1024 * 1024;
  pthread_attr_t attributes;
  std::size_t size = 0;
  if (pthread_getattr_default_np(&attributes) != 0) {
    return;
  }
  if (pthread_attr_getstacksize(&attributes, &size) == 0 && size > kMaxThreadStack &&
      pthread_attr_setstacksize(&attributes, kMaxThreadStack) == 0) {
    pthread_setattr_default_np(&attributes);
  }
  pthread_attr_destroy(&attributes);
#endif
}

// A few hundred requests come and go under load. What they leave is kept: with glibc's own limit of
// 128 KiB it would be given back to the system and faulted in again and again.
void KeepFreedMemory() {
#if defined(__GLIBC__)
  constexpr int kKept = 4 * 1024 * 1024;  // bytes a heap
  mallopt(M_TRIM_THRESHOLD, kKept);
#endif
}

// The line is empty but for one or two messages: this does not block.
void Say(int line, const std::string& what) {
  const std::string message = Printable(what) + "\n";
  if (write(line, message.data(), message.size()) == -1) {
    _exit(kChildServiceEnded);  // no parent any more
  }
}

// A thread of the child's own: takes new trace files, and ends the process when the parent is gone.
void* HearParent(void* sink) {
  for (;;) {
    char byte;
    iovec part = {&byte, 1};
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
    msghdr message = {};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof(control);
    const ssize_t received = recvmsg(kLine, &message, 0);
    if (received == 0 || (received == -1 && errno != EINTR)) {
      _exit(kChildServiceEnded);
    }
    const cmsghdr* const header = received == 1 ? CMSG_FIRSTHDR(&message) : nullptr;
    if (header != nullptr && header->cmsg_type == SCM_RIGHTS) {
      int file;
      std::memcpy(&file, CMSG_DATA(header), sizeof(file));
      static_cast<TraceSink*>(sink)->Exchange(file);
      close(file);
    }
  }
}

}  // namespace

Child::Child(TraceSink& sink, const User& user, std::string probeName)
    : sink_(sink), user_(user), probeName_(std::move(probeName)) {
  void* const shared =
      mmap(nullptr, sizeof(*passes_), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANON, -1, 0);
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free);
  passes_ = shared == MAP_FAILED ? new std::atomic<std::uint64_t>(0)  // counts for the child alone
                                 : new (shared) std::atomic<std::uint64_t>(0);
}

Child::~Child() { Forget(); }

void Child::Forget() {
  if (line_ != -1) {
    close(line_);
  }
  line_ = -1;
  process_ = 0;
  stopped_ = false;
  unread_.clear();
}

bool Child::Start(const Configuration& configuration) {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    return false;
  }
  fcntl(ends[0], F_SETFL, O_NONBLOCK);

  // Blocked in the child for good: one signal that is handled would end a worker.
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  process_ = fork();
  if (process_ == 0) {
    Run(configuration, ends[1]);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);

  close(ends[1]);
  line_ = ends[0];
  if (process_ == -1) {
    Forget();
    return false;
  }
  return true;
}

void Child::Run(const Configuration& configuration, int line) {
  KeepDescriptors({{line, kLine}, {sink_.fd(), kTrace}}, kFirstFree);
  sink_.Attach(sink_.IsOff() ? -1 : kTrace);
  LimitThreadStacks();
  KeepFreedMemory();

  ServiceWatch watch;
  watch.probeName = probeName_;
  watch.passes = passes_;
  watch.bound = [this] {
    if (const char* const call = DropRights(user_)) {
      const int error = errno;
      Say(kLine, "cannot run as '" + user_.name + "': " + call + ": " + std::strerror(error));
      _exit(kChildNoRights);
    }
    // Only now: a thread that was there before would keep rights of its own.
    pthread_t thread;
    if (pthread_create(&thread, nullptr, HearParent, &sink_) != 0) {
      Say(kLine, "no thread for the line to the parent");
      _exit(kChildServiceEnded);
    }
  };
  watch.serving = [] { Say(kLine, "serving"); };
  watch.workerEnded = [](const std::string& why) {
    Say(kLine, why);
    _exit(kChildServiceEnded);
  };
  WatchOutput(watch);

  const bool served = StartDnsSrv(configuration.servers, configuration.names);
  // The workers may be running: no destructor, no handler.
  Say(kLine, served ? "the service has ended" : "the service could not be started");
  _exit(kChildServiceEnded);
}

std::vector<std::string> Child::Heard() {
  char bytes[1024];
  for (ssize_t size; (size = read(line_, bytes, sizeof(bytes))) > 0;) {
    unread_.append(bytes, static_cast<std::size_t>(size));
  }
  std::vector<std::string> messages;
  for (std::size_t end; (end = unread_.find('\n')) != std::string::npos;) {
    messages.push_back(unread_.substr(0, end));
    unread_.erase(0, end + 1);
  }
  return messages;
}

void Child::HandTraceFile(int fd) const {
  char byte = 0;
  iovec part = {&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr message = {};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof(control);
  cmsghdr* const header = CMSG_FIRSTHDR(&message);
  header->cmsg_level = SOL_SOCKET;
  header->cmsg_type = SCM_RIGHTS;
  header->cmsg_len = CMSG_LEN(sizeof(int));
  std::memcpy(CMSG_DATA(header), &fd, sizeof(fd));
  sendmsg(line_, &message, 0);  // fails only for a child that is ending
}

void Child::Kill() const { kill(process_, SIGKILL); }

std::optional<Child::Ending> Child::Gone() {
  int status = 0;
  while (IsThere() && waitpid(process_, &status, WNOHANG | WUNTRACED) == process_) {
    if (WIFSTOPPED(status)) {
      stopped_ = true;
      Kill();
      continue;
    }
    const Ending ending = {status, stopped_, Heard()};
    Forget();
    return ending;
  }
  return std::nullopt;
}

void Child::AwaitEnd() {
  while (IsThere() && waitpid(process_, nullptr, 0) == -1 && errno == EINTR) {
  }
  Forget();
}
