// Rules of macOS that differ from Linux's, as a program sees them. On a Mac they hold by themselves;
// here they say what the program that runs it does about them. One is stricter, and says so.
#include <arpa/inet.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <netinet/in.h>
#include <pthread.h>
#include <signal.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

namespace {

sockaddr_in Loopback(std::uint16_t port = 0) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

const sockaddr* Generic(const sockaddr_in& address) {
  return reinterpret_cast<const sockaddr*>(&address);
}

// A datagram socket, bound to a port of the system's choice.
class BoundSocket {
 public:
  BoundSocket() {
    const sockaddr_in wanted = Loopback();
    EXPECT_EQ(bind(sock_, Generic(wanted), sizeof(wanted)), 0);
    socklen_t length = sizeof(address_);
    EXPECT_EQ(getsockname(sock_, reinterpret_cast<sockaddr*>(&address_), &length), 0);
    EXPECT_EQ(length, 16U);
  }
  ~BoundSocket() { close(sock_); }

  BoundSocket(const BoundSocket&) = delete;
  BoundSocket& operator=(const BoundSocket&) = delete;

  int sock() const { return sock_; }
  const sockaddr_in& address() const { return address_; }

 private:
  int sock_ = socket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
  sockaddr_in address_ = {};
};

struct Pipe {
  Pipe() { EXPECT_EQ(pipe(ends), 0); }
  ~Pipe() {
    close(ends[0]);
    close(ends[1]);
  }
  int ends[2] = {-1, -1};
};

// --- Addresses ----------------------------------------------------------------------------------

TEST(Addresses, NumbersOfTheSystem) {
  EXPECT_EQ(AF_INET6, 30);
  EXPECT_EQ(EAGAIN, 35);
  EXPECT_EQ(SOL_SOCKET, 0xFFFF);
  EXPECT_EQ(PIPE_BUF, 512);
}

TEST(Addresses, AnIPv4SocketTakesSixteenBytesAndNoOtherLength) {
  const BoundSocket to;
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  std::uint8_t bytes[sizeof(sockaddr_in6)] = {};
  const sockaddr_in address = Loopback();
  std::memcpy(bytes, &address, sizeof(address));
  for (const socklen_t length : {0U, 8U, 15U, 17U, 28U}) {
    EXPECT_EQ(bind(sock, reinterpret_cast<sockaddr*>(bytes), length), -1) << length;
    EXPECT_EQ(errno, EINVAL) << length;
  }
  std::memcpy(bytes, &to.address(), sizeof(sockaddr_in));
  for (const socklen_t length : {8U, 15U, 17U, 28U}) {
    EXPECT_EQ(sendto(sock, "x", 1, 0, reinterpret_cast<sockaddr*>(bytes), length), -1) << length;
    EXPECT_EQ(errno, EINVAL) << length;
  }
  EXPECT_EQ(sendto(sock, "x", 1, 0, reinterpret_cast<sockaddr*>(bytes), 16), 1);
  close(sock);
}

TEST(Addresses, TheLengthByteOfTheCallerIsNotRead) {
  const BoundSocket to;
  for (const int length : {0, 16, 28, 255}) {
    sockaddr_in address = to.address();
    address.sin_len = static_cast<std::uint8_t>(length);
    EXPECT_EQ(sendto(to.sock(), "x", 1, 0, Generic(address), sizeof(address)), 1) << length;
  }
}

TEST(Addresses, ComeBackWithTheirLengthAndTheFamilyBehindIt) {
  const BoundSocket from, to;
  ASSERT_EQ(sendto(from.sock(), "x", 1, 0, Generic(to.address()), sizeof(sockaddr_in)), 1);
  std::uint8_t bytes[sizeof(sockaddr_in6)] = {};
  socklen_t length = sizeof(bytes);
  char datagram = 0;
  ASSERT_EQ(recvfrom(to.sock(), &datagram, 1, 0, reinterpret_cast<sockaddr*>(bytes), &length), 1);
  EXPECT_EQ(length, 16U);
  EXPECT_EQ(bytes[0], 16);
  EXPECT_EQ(bytes[1], 2);
  EXPECT_EQ(std::memcmp(bytes, &from.address(), 16), 0);
}

TEST(Addresses, AnotherFamilyIsRefused) {
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address = Loopback();
  address.sin_family = AF_INET6;
  EXPECT_EQ(bind(sock, Generic(address), sizeof(address)), -1);
  EXPECT_EQ(errno, EAFNOSUPPORT);
  close(sock);
}

TEST(Addresses, FamilyInThePlaceOfTheLengthIsRefused) {
  // Stricter than macOS, which takes a family of 0 on such a socket for AF_INET.
  const int sock = socket(AF_INET, SOCK_DGRAM, 0);
  sockaddr_in address = Loopback();
  address.sin_len = AF_INET;
  address.sin_family = 0;
  EXPECT_EQ(bind(sock, Generic(address), sizeof(address)), -1);
  EXPECT_EQ(errno, EAFNOSUPPORT);
  close(sock);
}

TEST(Addresses, IPv6HasTheNumber30InEveryCall) {
  char text[INET6_ADDRSTRLEN] = {};
  in6_addr address = {};
  ASSERT_EQ(inet_pton(30, "::1", &address), 1);
  EXPECT_STREQ(inet_ntop(30, &address, text, sizeof(text)), "::1");
  EXPECT_EQ(inet_ntop(10, &address, text, sizeof(text)), nullptr);
  EXPECT_EQ(errno, EAFNOSUPPORT);
}

// --- Errors -------------------------------------------------------------------------------------

TEST(Errors, HaveTheNumbersOfTheSystem) {
  const BoundSocket bound;
  char byte = 0;
  EXPECT_EQ(recv(bound.sock(), &byte, 1, MSG_DONTWAIT), -1);
  EXPECT_EQ(errno, 35) << "EAGAIN";

  const int second = socket(AF_INET, SOCK_DGRAM, 0);
  EXPECT_EQ(bind(second, Generic(bound.address()), sizeof(sockaddr_in)), -1);
  EXPECT_EQ(errno, 48) << "EADDRINUSE";
  EXPECT_STREQ(std::strerror(errno), "Address already in use");
  EXPECT_EQ(send(second, "x", 1, 0), -1);
  EXPECT_EQ(errno, 39) << "EDESTADDRREQ";
  close(second);

  EXPECT_EQ(send(0x7FFF, "x", 1, 0), -1);
  EXPECT_EQ(errno, EBADF);
  EXPECT_EQ(open("/", O_WRONLY), -1);
  EXPECT_EQ(errno, EISDIR);
}

TEST(Errors, AreTheThreadsOwnAndStayUntilTheNext) {
  errno = 35;
  std::thread([] { EXPECT_EQ(errno, 0); }).join();
  EXPECT_EQ(errno, 35);
  errno = 0;
  EXPECT_EQ(close(-1), -1);
  EXPECT_EQ(std::strlen("any"), 3U);
  EXPECT_EQ(errno, EBADF);
}

// --- Sockets ------------------------------------------------------------------------------------

TEST(Sockets, OptionsByTheirNumbers) {
  // Without it the second socket could not have the port of the first.
  const int yes = 1;
  sockaddr_in address = Loopback();
  socklen_t length = sizeof(address);
  int socks[2];
  for (int& sock : socks) {
    sock = socket(AF_INET, SOCK_DGRAM, 0);
    EXPECT_EQ(setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes)), 0);
    EXPECT_EQ(bind(sock, Generic(address), sizeof(address)), 0);
    EXPECT_EQ(getsockname(sock, reinterpret_cast<sockaddr*>(&address), &length), 0);
  }
  close(socks[0]);
  close(socks[1]);
}

TEST(Sockets, ADescriptorTravelsInAControlMessage) {
  int line[2];
  ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, line), 0);
  const Pipe sent;
  EXPECT_EQ(CMSG_LEN(sizeof(int)), 16U);

  char byte = 'x';
  iovec part = {&byte, 1};
  alignas(cmsghdr) char control[CMSG_SPACE(sizeof(int))] = {};
  msghdr message = {};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof(control);
  cmsghdr* const head = CMSG_FIRSTHDR(&message);
  head->cmsg_len = CMSG_LEN(sizeof(int));
  head->cmsg_level = SOL_SOCKET;
  head->cmsg_type = SCM_RIGHTS;
  std::memcpy(CMSG_DATA(head), &sent.ends[1], sizeof(int));
  ASSERT_EQ(sendmsg(line[0], &message, 0), 1);

  std::memset(control, 0, sizeof(control));
  message.msg_controllen = sizeof(control);
  ASSERT_EQ(recvmsg(line[1], &message, MSG_DONTWAIT), 1);
  EXPECT_EQ(message.msg_flags, 0);
  ASSERT_NE(CMSG_FIRSTHDR(&message), nullptr);
  EXPECT_EQ(head->cmsg_len, CMSG_LEN(sizeof(int)));
  EXPECT_EQ(head->cmsg_level, SOL_SOCKET);
  EXPECT_EQ(head->cmsg_type, SCM_RIGHTS);
  int received = -1;
  std::memcpy(&received, CMSG_DATA(head), sizeof(received));
  EXPECT_EQ(write(received, "y", 1), 1);
  EXPECT_EQ(read(sent.ends[0], &byte, 1), 1);
  EXPECT_EQ(byte, 'y');
  for (const int descriptor : {received, line[0], line[1]}) {
    close(descriptor);
  }
}

TEST(Sockets, AMessagesSenderHasItsLength) {
  const BoundSocket from, to;
  ASSERT_EQ(sendto(from.sock(), "xyz", 3, 0, Generic(to.address()), sizeof(sockaddr_in)), 3);
  char bytes[2];
  iovec part = {bytes, sizeof(bytes)};
  sockaddr_in sender = {};
  msghdr message = {};
  message.msg_name = &sender;
  message.msg_namelen = sizeof(sender);
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  ASSERT_EQ(recvmsg(to.sock(), &message, 0), 2);
  EXPECT_EQ(message.msg_flags, MSG_TRUNC);
  EXPECT_EQ(message.msg_namelen, 16U);
  EXPECT_EQ(std::memcmp(&sender, &from.address(), 16), 0);
}

// --- Waiting ------------------------------------------------------------------------------------

TEST(Waiting, MicrosecondsAre32BitsAndWhatFollowsThemIsNotRead) {
  std::uint8_t bytes[sizeof(timeval)];
  std::memset(bytes, 0xFF, sizeof(bytes));
  const timeval atOnce = {};
  std::memcpy(bytes, &atOnce.tv_sec, sizeof(atOnce.tv_sec));
  std::memcpy(bytes + offsetof(timeval, tv_usec), &atOnce.tv_usec, sizeof(atOnce.tv_usec));
  EXPECT_EQ(sizeof(atOnce.tv_usec), 4U);
  timeval timeout;
  std::memcpy(&timeout, bytes, sizeof(bytes));
  EXPECT_EQ(select(0, nullptr, nullptr, nullptr, &timeout), 0);
  timeout.tv_usec = 1'000'000;
  EXPECT_EQ(select(0, nullptr, nullptr, nullptr, &timeout), -1);
  EXPECT_EQ(errno, EINVAL);
}

TEST(Waiting, ReadySocketsStandInTheSet) {
  const BoundSocket quiet, ready;
  sendto(quiet.sock(), "x", 1, 0, Generic(ready.address()), sizeof(sockaddr_in));
  fd_set set;
  FD_ZERO(&set);
  FD_SET(quiet.sock(), &set);
  FD_SET(ready.sock(), &set);
  const int count = std::max(quiet.sock(), ready.sock()) + 1;
  EXPECT_EQ(select(count, &set, nullptr, nullptr, nullptr), 1);
  EXPECT_FALSE(FD_ISSET(quiet.sock(), &set));
  EXPECT_TRUE(FD_ISSET(ready.sock(), &set));
}

// --- Files --------------------------------------------------------------------------------------

TEST(Files, APipeTakes512BytesInOnePieceAndCutsWhatIsLonger) {
  const Pipe pipe;
  fcntl(pipe.ends[1], F_SETFL, O_NONBLOCK);
  char bytes[4096] = {};
  while (write(pipe.ends[1], bytes, 512) == 512) {
  }
  EXPECT_EQ(errno, EAGAIN);
  ASSERT_EQ(read(pipe.ends[0], bytes, 4096), 4096);
  for (int i = 0; i < 7; ++i) {
    ASSERT_EQ(write(pipe.ends[1], bytes, 512), 512);
  }
  EXPECT_EQ(write(pipe.ends[1], bytes, 1000), 512) << "room for 512: part of it is taken";
}

TEST(Files, OpenAndFcntlByTheSystemsFlags) {
  const std::string path = testing::TempDir() + "rules_test." + std::to_string(getpid());
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_NONBLOCK, 0600);
  ASSERT_NE(file, -1);
  EXPECT_EQ(open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600), -1);
  EXPECT_EQ(errno, EEXIST);
  EXPECT_EQ(fcntl(file, F_GETFL) & (O_ACCMODE | O_APPEND | O_NONBLOCK),
            O_WRONLY | O_APPEND | O_NONBLOCK);
  EXPECT_EQ(fcntl(file, F_SETFL, O_APPEND), 0);
  EXPECT_EQ(fcntl(file, F_GETFL) & O_NONBLOCK, 0);

  EXPECT_EQ(write(file, "seven b", 7), 7);
  struct stat state = {};
  ASSERT_EQ(fstat(file, &state), 0);
  EXPECT_EQ(state.st_size, 7);
  EXPECT_TRUE(S_ISREG(state.st_mode));
  EXPECT_EQ(state.st_mode & 0777, 0600);
  EXPECT_EQ(state.st_nlink, 1);
  EXPECT_EQ(state.st_uid, geteuid());
  EXPECT_EQ(symlink("nowhere", (path + ".link").c_str()), 0);
  EXPECT_EQ(open((path + ".link").c_str(), O_RDONLY | O_NOFOLLOW), -1);
  EXPECT_EQ(errno, ELOOP);
  EXPECT_EQ(lstat((path + ".link").c_str(), &state), 0);
  EXPECT_TRUE(S_ISLNK(state.st_mode));
  unlink((path + ".link").c_str());
  unlink(path.c_str());
  close(file);
}

// --- Signals and processes ----------------------------------------------------------------------

int g_come = 0;

TEST(Signals, AHandlerGetsTheSystemsNumber) {
  struct sigaction action = {};
  struct sigaction former = {};
  action.sa_handler = [](int signal) { g_come = signal; };
  sigemptyset(&action.sa_mask);
  EXPECT_EQ(SIGUSR1, 30);
  ASSERT_EQ(sigaction(SIGUSR1, &action, &former), 0);
  EXPECT_EQ(former.sa_handler, SIG_DFL);
  kill(getpid(), SIGUSR1);
  EXPECT_EQ(g_come, 30);
  ASSERT_EQ(sigaction(SIGUSR1, &former, &action), 0);
  EXPECT_NE(action.sa_handler, SIG_DFL);
}

TEST(Signals, OneThatIsBlockedComesWhenPselectLetsIt) {
  struct sigaction action = {};
  struct sigaction former = {};
  action.sa_handler = [](int signal) { g_come = signal; };
  sigaction(SIGCHLD, &action, &former);
  sigset_t blocked, before;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGCHLD);
  ASSERT_EQ(sigprocmask(SIG_BLOCK, &blocked, &before), 0);
  g_come = 0;
  kill(getpid(), SIGCHLD);
  EXPECT_EQ(g_come, 0);
  EXPECT_EQ(pselect(0, nullptr, nullptr, nullptr, nullptr, &before), -1);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(g_come, SIGCHLD);
  sigprocmask(SIG_SETMASK, &before, nullptr);
  sigaction(SIGCHLD, &former, nullptr);
}

TEST(Processes, AStatusSaysHowAChildEnded) {
  const struct {
    int signal;
    bool stopped;
  } cases[] = {{0, false}, {SIGUSR2, false}, {SIGSTOP, true}, {SIGKILL, false}};
  for (const auto& test : cases) {
    const pid_t child = fork();
    if (child == 0) {
      kill(getpid(), test.signal);
      _exit(7);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, WUNTRACED), child);
    if (test.signal == 0) {
      EXPECT_TRUE(WIFEXITED(status));
      EXPECT_EQ(WEXITSTATUS(status), 7);
    } else if (test.stopped) {
      EXPECT_TRUE(WIFSTOPPED(status));
      EXPECT_EQ(WSTOPSIG(status), test.signal);
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
    } else {
      EXPECT_TRUE(WIFSIGNALED(status));
      EXPECT_EQ(WTERMSIG(status), test.signal);
    }
  }
}

// --- Threads ------------------------------------------------------------------------------------

TEST(Threads, JoiningAnEndedThreadAgainIsAnError) {
  pthread_t thread;
  ASSERT_EQ(pthread_create(
                &thread, nullptr, [](void* argument) { return argument; }, &thread),
            0);
  void* result = nullptr;
  EXPECT_EQ(pthread_join(thread, &result), 0);
  EXPECT_EQ(result, &thread);
  EXPECT_EQ(pthread_join(thread, nullptr), ESRCH);
}

TEST(Threads, LocksStayWithinTheirRecords) {
  struct {
    pthread_mutex_t mutex = PTHREAD_MUTEX_INITIALIZER;
    std::uint64_t afterMutex = 0x1234;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    std::uint64_t afterCondition = 0x5678;
  } locks;
  const timespec past = {1, 0};
  EXPECT_EQ(pthread_mutex_lock(&locks.mutex), 0);
  EXPECT_EQ(pthread_mutex_trylock(&locks.mutex), EBUSY);
  EXPECT_EQ(pthread_cond_timedwait(&locks.condition, &locks.mutex, &past), 60) << "ETIMEDOUT";
  EXPECT_EQ(pthread_mutex_unlock(&locks.mutex), 0);
  EXPECT_EQ(locks.afterMutex, 0x1234U);
  EXPECT_EQ(locks.afterCondition, 0x5678U);
  EXPECT_EQ(pthread_cond_destroy(&locks.condition), 0);
  EXPECT_EQ(pthread_mutex_destroy(&locks.mutex), 0);
}

thread_local int t_counted = 41;
thread_local std::uint64_t t_zero;
thread_local std::string t_text = "first";

TEST(Threads, EachHasItsOwnVariables) {
  ++t_counted;
  t_zero = 1;
  t_text = "changed";
  std::thread([] {
    EXPECT_EQ(t_counted, 41);
    EXPECT_EQ(t_zero, 0U);
    EXPECT_EQ(t_text, "first");
  }).join();
  EXPECT_EQ(t_counted, 42);
  EXPECT_EQ(t_text, "changed");
}

// --- Streams ------------------------------------------------------------------------------------

std::string g_written;

TEST(Streams, PrintfFollowsTheProgramsOwnStdout) {
  std::FILE* const ours = funopen(
      nullptr, nullptr,
      [](void* /*cookie*/, const char* bytes, int size) {
        g_written.append(bytes, static_cast<std::size_t>(size));
        return size;
      },
      nullptr, nullptr);
  ASSERT_NE(ours, nullptr);
  std::FILE* const former = std::exchange(stdout, ours);
  printf("%d %s", 53, "printed");
  puts(" and put");
  fflush(stdout);
  stdout = former;
  fclose(ours);
  EXPECT_EQ(g_written, "53 printed and put\n");
}

TEST(Streams, AStreamWhoseWriteFailsSaysSo) {
  std::FILE* const failing = funopen(
      nullptr, nullptr, [](void* /*cookie*/, const char* /*bytes*/, int /*size*/) { return -1; },
      nullptr, nullptr);
  setvbuf(failing, nullptr, _IONBF, 0);
  EXPECT_LT(fputs("lost", failing), 0);
  EXPECT_NE(ferror(failing), 0);
  fclose(failing);
}

// --- The loader ---------------------------------------------------------------------------------

int g_madeBeforeMain = [] { return 53; }() + static_cast<int>(std::string("!").size());

TEST(Loader, ConstructorsRunBeforeMain) { EXPECT_EQ(g_madeBeforeMain, 54); }

TEST(Loader, TheFirstCallOfAFunctionKeepsEveryArgument) {
  // Nothing else calls it, so that the call binds it.
  char* text = nullptr;
  asprintf(&text, "%d %d %d %d %.1f %.1f %.1f %.1f %.1f %.1f %.1f %.1f", 1, 2, 3, 4, 1.5, 2.5, 3.5,
           4.5, 5.5, 6.5, 7.5, 8.5);
  EXPECT_STREQ(text, "1 2 3 4 1.5 2.5 3.5 4.5 5.5 6.5 7.5 8.5");
  free(text);
}

TEST(Loader, FindsTheSystemsFunctionByItsName) {
  const auto own = reinterpret_cast<pid_t (*)()>(dlsym(RTLD_NEXT, "getpid"));
  ASSERT_NE(own, nullptr);
  EXPECT_EQ(own(), getpid());
  EXPECT_EQ(dlsym(RTLD_NEXT, "no_such_function"), nullptr);
}

struct Destroyed {
  explicit Destroyed(int* count) : count_(count) {}
  ~Destroyed() { ++*count_; }
  int* count_;
};

[[gnu::noinline]] void Throw(int depth, int* destroyed) {
  const Destroyed here(destroyed);
  if (depth == 0) {
    throw std::out_of_range("thrown");
  }
  Throw(depth - 1, destroyed);
}

TEST(Loader, ExceptionsUnwindTheProgramsOwnFramesInEveryThread) {
  const auto once = [] {
    int destroyed = 0;
    try {
      try {
        Throw(9, &destroyed);
      } catch (const std::runtime_error&) {
        FAIL() << "of another class";
      }
    } catch (const std::logic_error& thrown) {
      EXPECT_STREQ(thrown.what(), "thrown");
    }
    EXPECT_EQ(destroyed, 10);
  };
  once();
  std::thread(once).join();
}

}  // namespace
