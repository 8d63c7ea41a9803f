// Files, sockets, signals and processes.
#include <arpa/inet.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <netinet/in.h>
#include <pwd.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <utility>

#include "tests/macos/run/imports.h"

namespace {

// --- Numbers ------------------------------------------------------------------------------------

// A number there, and here.
struct Pair {
  int mac, linux;
};
using Pairs = std::span<const Pair>;

int ToMac(Pairs pairs, int linux, int otherwise) {
  const auto found = std::ranges::find(pairs, linux, &Pair::linux);
  return found == pairs.end() ? otherwise : found->mac;
}

int ToLinux(Pairs pairs, int mac, int otherwise) {
  const auto found = std::ranges::find(pairs, mac, &Pair::mac);
  return found == pairs.end() ? otherwise : found->linux;
}

// The bits of `flags`. One that is not in the table ends the run.
int FlagsToLinux(Pairs pairs, int flags) {
  int result = 0;
  for (const Pair& pair : pairs) {
    result |= (flags & pair.mac) != 0 ? pair.linux : 0;
    flags &= ~pair.mac;
  }
  if (flags != 0) {
    EndUnwritten("a flag");
  }
  return result;
}

int FlagsToMac(Pairs pairs, int flags) {
  int result = 0;
  for (const Pair& pair : pairs) {
    result |= (flags & pair.linux) != 0 ? pair.mac : 0;
  }
  return result;
}

// Below 35 both systems have the numbers of old, but for EDEADLK, whose place Linux gave to EAGAIN.
constexpr Pair kErrors[] = {
    {11, EDEADLK},      {35, EAGAIN},           {36, EINPROGRESS},     {37, EALREADY},
    {38, ENOTSOCK},     {39, EDESTADDRREQ},     {40, EMSGSIZE},        {41, EPROTOTYPE},
    {42, ENOPROTOOPT},  {43, EPROTONOSUPPORT},  {44, ESOCKTNOSUPPORT}, {45, EOPNOTSUPP},
    {46, EPFNOSUPPORT}, {47, EAFNOSUPPORT},     {48, EADDRINUSE},      {49, EADDRNOTAVAIL},
    {50, ENETDOWN},     {51, ENETUNREACH},      {52, ENETRESET},       {53, ECONNABORTED},
    {54, ECONNRESET},   {55, ENOBUFS},          {56, EISCONN},         {57, ENOTCONN},
    {58, ESHUTDOWN},    {59, ETOOMANYREFS},     {60, ETIMEDOUT},       {61, ECONNREFUSED},
    {62, ELOOP},        {63, ENAMETOOLONG},     {64, EHOSTDOWN},       {65, EHOSTUNREACH},
    {66, ENOTEMPTY},    {68, EUSERS},           {69, EDQUOT},          {70, ESTALE},
    {77, ENOLCK},       {78, ENOSYS},           {84, EOVERFLOW},       {89, ECANCELED},
    {90, EIDRM},        {91, ENOMSG},           {92, EILSEQ},          {94, EBADMSG},
    {100, EPROTO},      {104, ENOTRECOVERABLE}, {105, EOWNERDEAD}};

constexpr int kSignalCount = 32;
constexpr Pair kSignals[] = {{10, SIGBUS},  {12, SIGSYS},  {16, SIGURG},  {17, SIGSTOP},
                             {18, SIGTSTP}, {19, SIGCONT}, {20, SIGCHLD}, {23, SIGIO},
                             {30, SIGUSR1}, {31, SIGUSR2}, {7, 0},        {29, 0}};

constexpr Pair kFamilies[] = {{AF_UNSPEC, AF_UNSPEC}, {1, AF_UNIX}, {2, AF_INET}, {30, AF_INET6}};

constexpr Pair kOpenFlags[] = {{1, O_WRONLY},           {2, O_RDWR},           {4, O_NONBLOCK},
                               {8, O_APPEND},           {0x100, O_NOFOLLOW},   {0x200, O_CREAT},
                               {0x400, O_TRUNC},        {0x800, O_EXCL},       {0x20000, O_NOCTTY},
                               {0x100000, O_DIRECTORY}, {0x1000000, O_CLOEXEC}};

constexpr Pair kMatchFlags[] = {{1, FNM_NOESCAPE}, {2, FNM_PATHNAME}, {4, FNM_PERIOD}};

constexpr Pair kMessageFlags[] = {{0x2, MSG_PEEK},      {0x10, MSG_TRUNC},
                                  {0x20, MSG_CTRUNC},   {0x40, MSG_WAITALL},
                                  {0x80, MSG_DONTWAIT}, {0x80000, MSG_NOSIGNAL}};

constexpr Pair kActionFlags[] = {{1, SA_ONSTACK},   {2, SA_RESTART},    {4, int(SA_RESETHAND)},
                                 {8, SA_NOCLDSTOP}, {0x10, SA_NODEFER}, {0x20, SA_NOCLDWAIT}};

constexpr int kMacSocketLevel = 0xFFFF;
constexpr Pair kSocketOptions[] = {
    {0x4, SO_REUSEADDR}, {0x20, SO_BROADCAST}, {0x1001, SO_SNDBUF}, {0x1002, SO_RCVBUF}};

int Fail(int error) {
  errno = error;
  return -1;
}

}  // namespace

int MacError(int linuxError) { return ToMac(kErrors, linuxError, linuxError); }
int LinuxError(int macError) { return ToLinux(kErrors, macError, macError); }

namespace {

// What the C library has left since the last look: nothing else has to translate its errors.
int* Error() {
  thread_local int error = 0;
  if (errno != 0) {
    error = MacError(std::exchange(errno, 0));
  }
  return &error;
}

// --- Addresses ----------------------------------------------------------------------------------

// Length and family are a byte each; what follows is the same for every family.
struct Address {
  sockaddr_storage linux = {};
  socklen_t length = sizeof(linux);

  sockaddr* get() { return reinterpret_cast<sockaddr*>(&linux); }
};

// The kernel there takes the length for the address's own, and an IPv4 socket no other than 16. It
// forgives a family of 0 on such a socket; this does not, so that a family that stands in the place
// of the length is found.
std::optional<Address> FromMac(int sock, const void* address, socklen_t length) {
  Address result;
  int family = 0;
  socklen_t size = sizeof(family);
  if (getsockopt(sock, SOL_SOCKET, SO_DOMAIN, &family, &size) == -1) {
    return {};
  }
  if (length < 2 || length > sizeof(result.linux) ||
      (family == AF_INET && length != sizeof(sockaddr_in)) ||
      (family == AF_INET6 && length != sizeof(sockaddr_in6))) {
    errno = EINVAL;
    return {};
  }
  std::memcpy(&result.linux, address, length);
  result.length = length;
  if (ToLinux(kFamilies, result.linux.ss_family >> 8, -1) != family) {
    errno = EAFNOSUPPORT;
    return {};
  }
  result.linux.ss_family = static_cast<sa_family_t>(family);
  return result;
}

// As much of it as there is room for. `*room` becomes what was written.
void ToMac(Address address, void* result, socklen_t* room) {
  if (result != nullptr && room != nullptr) {
    const int family = ToMac(kFamilies, address.linux.ss_family, 0);
    address.linux.ss_family =
        static_cast<sa_family_t>(family << 8 | static_cast<int>(address.length));
    *room = std::min(*room, address.length);
    std::memcpy(result, &address.linux, *room);
  }
}

// --- Sockets ------------------------------------------------------------------------------------

int Socket(int family, int type, int protocol) {
  const int known = ToLinux(kFamilies, family, -1);
  return known == -1 ? Fail(EAFNOSUPPORT) : socket(known, type, protocol);
}

// A call that takes an address, and one that fills one in.
template <int (*Call)(int, const sockaddr*, socklen_t)>
int Taking(int sock, const void* address, socklen_t length) {
  auto linux = FromMac(sock, address, length);
  return linux ? Call(sock, linux->get(), linux->length) : -1;
}

template <int (*Call)(int, sockaddr*, socklen_t*)>
int FillingIn(int sock, void* address, socklen_t* room) {
  Address linux;
  const int result = Call(sock, linux.get(), &linux.length);
  if (result != -1) {
    ToMac(linux, address, room);
  }
  return result;
}

ssize_t RecvFrom(int sock, void* buffer, std::size_t size, int flags, void* from, socklen_t* room) {
  Address linux;
  const ssize_t received =
      recvfrom(sock, buffer, size, FlagsToLinux(kMessageFlags, flags), linux.get(), &linux.length);
  if (received != -1) {
    ToMac(linux, from, room);
  }
  return received;
}

ssize_t Recv(int sock, void* buffer, std::size_t size, int flags) {
  return RecvFrom(sock, buffer, size, flags, nullptr, nullptr);
}

ssize_t Send(int sock, const void* bytes, std::size_t size, int flags) {
  return send(sock, bytes, size, FlagsToLinux(kMessageFlags, flags));
}

ssize_t SendTo(int sock, const void* bytes, std::size_t size, int flags, const void* to,
               socklen_t length) {
  auto linux = FromMac(sock, to, length);
  return linux ? sendto(sock, bytes, size, FlagsToLinux(kMessageFlags, flags), linux->get(),
                        linux->length)
               : -1;
}

const char* INetNToP(int family, const void* address, char* text, socklen_t size) {
  return inet_ntop(ToLinux(kFamilies, family, -1), address, text, size);
}

int INetPToN(int family, const char* text, void* address) {
  return inet_pton(ToLinux(kFamilies, family, -1), text, address);
}

int SetSockOpt(int sock, int level, int option, const void* value, socklen_t size) {
  const int known = level == kMacSocketLevel ? ToLinux(kSocketOptions, option, -1) : -1;
  if (known == -1) {
    EndUnwritten("an option of setsockopt");
  }
  return setsockopt(sock, SOL_SOCKET, known, value, size);
}

// --- Messages with descriptors ------------------------------------------------------------------

struct MacMessage {
  void* name;
  socklen_t nameLength;
  iovec* parts;
  std::uint32_t partCount;
  void* control;
  socklen_t controlLength;
  int flags;
};

// A control message with a descriptor, which is all that is known to travel: aligned to 4 bytes
// there, to 8 here.
struct MacControl {
  std::uint32_t length = sizeof(MacControl);
  int level = kMacSocketLevel, type = SCM_RIGHTS, descriptor = -1;
};

struct Control {
  std::size_t length = CMSG_LEN(sizeof(int));
  int level = SOL_SOCKET, type = SCM_RIGHTS, descriptor = -1;
};
static_assert(sizeof(MacControl) == 16 && sizeof(Control) == CMSG_SPACE(sizeof(int)));

ssize_t SendMsg(int sock, const MacMessage* message, int flags) {
  if (message->controlLength == 0 && message->partCount == 1) {
    return SendTo(sock, message->parts->iov_base, message->parts->iov_len, flags, message->name,
                  message->nameLength);
  }
  if (message->name != nullptr || message->controlLength != sizeof(MacControl)) {
    EndUnwritten("sendmsg of several parts, or of a descriptor to an address");
  }
  const auto& sent = *static_cast<const MacControl*>(message->control);
  if (sent.length != sizeof(sent) || sent.level != kMacSocketLevel || sent.type != SCM_RIGHTS) {
    return Fail(EINVAL);
  }
  Control control = {.descriptor = sent.descriptor};
  const msghdr linux = {nullptr,         0, message->parts, message->partCount, &control,
                        sizeof(control), 0};
  return sendmsg(sock, &linux, FlagsToLinux(kMessageFlags, flags));
}

ssize_t RecvMsg(int sock, MacMessage* message, int flags) {
  Address from;
  Control control;
  const std::size_t room = message->controlLength < sizeof(MacControl) ? 0 : sizeof(control);
  msghdr linux = {from.get(), from.length, message->parts, message->partCount, &control, room, 0};
  const ssize_t size = recvmsg(sock, &linux, FlagsToLinux(kMessageFlags, flags));
  if (size == -1) {
    return -1;
  }
  message->flags = FlagsToMac(kMessageFlags, linux.msg_flags);
  from.length = linux.msg_namelen;
  ToMac(from, message->name, &message->nameLength);
  message->controlLength = linux.msg_controllen == 0 ? 0 : sizeof(MacControl);
  if (message->controlLength != 0) {
    *static_cast<MacControl*>(message->control) = {.descriptor = control.descriptor};
  }
  return size;
}

// --- Files --------------------------------------------------------------------------------------

// Variadic there, which is no difference to the registers that arguments come in.
int Open(const char* path, int flags, mode_t mode) {
  return open(path, FlagsToLinux(kOpenFlags, flags), mode);
}

int FCntl(int descriptor, int command, int argument) {  // F_GETFL and F_SETFL: the same numbers
  if (command == F_SETFL) {
    return fcntl(descriptor, command, FlagsToLinux(kOpenFlags, argument));
  }
  if (command != F_GETFL) {
    EndUnwritten("a command of fcntl");
  }
  const int flags = fcntl(descriptor, command);
  return flags == -1 ? -1 : FlagsToMac(kOpenFlags, flags);
}

int IOCtl(int descriptor, unsigned long request) {
  constexpr unsigned long kGiveUpTerminal = 0x20007471;  // TIOCNOTTY
  if (request != kGiveUpTerminal) {
    EndUnwritten("a request of ioctl");
  }
  return ioctl(descriptor, TIOCNOTTY);
}

int FnMatch(const char* pattern, const char* text, int flags) {
  return fnmatch(pattern, text, FlagsToLinux(kMatchFlags, flags));
}

// A pipe takes 512 bytes in one piece there, and 4,096 here: what is longer may be cut, and then
// others may write in between.
ssize_t Write(int descriptor, const void* bytes, std::size_t size) {
  struct stat state = {};
  const bool isPipe = fstat(descriptor, &state) == 0 && S_ISFIFO(state.st_mode);
  const std::size_t most = isPipe ? 512 : size;
  std::size_t written = 0;
  do {
    const ssize_t piece = write(descriptor, static_cast<const char*>(bytes) + written,
                                std::min(most, size - written));
    if (piece == -1) {
      return written == 0 ? -1 : static_cast<ssize_t>(written);
    }
    written += static_cast<std::size_t>(piece);
  } while (isPipe && written < size);
  return static_cast<ssize_t>(written);
}

struct MacStat {
  std::int32_t device;
  std::uint16_t mode, links;
  std::uint64_t file;
  std::uint32_t user, group;
  std::int32_t special;
  timespec times[4];  // accessed, modified, changed, born
  std::int64_t size, blocks;
  std::int32_t blockSize;
  std::uint32_t rest[7] = {};
};
static_assert(sizeof(MacStat) == 144 && offsetof(MacStat, size) == 96);

template <typename Which, int (*Call)(Which, struct stat*)>
int StatOf(Which which, MacStat* result) {
  struct stat linux = {};
  if (Call(which, &linux) == -1) {
    return -1;
  }
  *result = {.device = static_cast<std::int32_t>(linux.st_dev),
             .mode = static_cast<std::uint16_t>(linux.st_mode),
             .links = static_cast<std::uint16_t>(linux.st_nlink),
             .file = linux.st_ino,
             .user = linux.st_uid,
             .group = linux.st_gid,
             .special = static_cast<std::int32_t>(linux.st_rdev),
             .times = {linux.st_atim, linux.st_mtim, linux.st_ctim, linux.st_ctim},
             .size = linux.st_size,
             .blocks = linux.st_blocks,
             .blockSize = static_cast<std::int32_t>(linux.st_blksize)};
  return 0;
}

void* MMap(void* address, std::size_t size, int protection, int flags, int file, off_t offset) {
  constexpr int kAnonymous = 0x1000;  // the others that programs use have the same numbers
  const int known = (flags & ~kAnonymous) | ((flags & kAnonymous) != 0 ? MAP_ANONYMOUS : 0);
  return mmap(address, size, protection, known, file, offset);
}

// --- Signals and processes ----------------------------------------------------------------------

int MacSignal(int linuxSignal) { return ToMac(kSignals, linuxSignal, linuxSignal); }
int LinuxSignal(int macSignal) { return ToLinux(kSignals, macSignal, macSignal); }

using MacSignalSet = std::uint32_t;  // signal 1 is bit 0

MacSignalSet BitOf(int macSignal) { return MacSignalSet{1} << (macSignal - 1); }

sigset_t LinuxSignals(MacSignalSet set) {
  sigset_t signals;
  sigemptyset(&signals);
  for (int signal = 1; signal < kSignalCount; ++signal) {
    if ((set & BitOf(signal)) != 0) {
      sigaddset(&signals, LinuxSignal(signal));
    }
  }
  return signals;
}

MacSignalSet MacSignals(const sigset_t& set) {
  MacSignalSet signals = 0;
  for (int signal = 1; signal < kSignalCount; ++signal) {
    signals |= sigismember(&set, LinuxSignal(signal)) == 1 ? BitOf(signal) : 0;
  }
  return signals;
}

struct MacAction {
  void (*handler)(int);  // SIG_DFL and SIG_IGN are 0 and 1 on both
  MacSignalSet mask;
  int flags;
};

// What the program has installed, by its own number of the signal.
std::array<void (*)(int), kSignalCount> g_handlers;

void Deliver(int linuxSignal) {
  const int signal = MacSignal(linuxSignal);
  g_handlers.at(static_cast<std::size_t>(signal))(signal);
}

int SigAction(int signal, const MacAction* action, MacAction* former) {
  if (signal < 1 || signal >= kSignalCount) {
    return Fail(EINVAL);
  }
  auto& handler = g_handlers.at(static_cast<std::size_t>(signal));
  const auto before = handler;
  struct sigaction linux = {}, old = {};
  if (action != nullptr) {
    linux.sa_flags = FlagsToLinux(kActionFlags, action->flags);
    linux.sa_mask = LinuxSignals(action->mask);
    linux.sa_handler = action->handler;
    if (action->handler != SIG_DFL && action->handler != SIG_IGN) {
      handler = action->handler;
      linux.sa_handler = Deliver;
    }
  }
  if (sigaction(LinuxSignal(signal), action == nullptr ? nullptr : &linux, &old) == -1) {
    return -1;
  }
  if (former != nullptr) {
    *former = {old.sa_handler == Deliver ? before : old.sa_handler, MacSignals(old.sa_mask),
               FlagsToMac(kActionFlags, old.sa_flags)};
  }
  return 0;
}

int SigProcMask(int how, const MacSignalSet* set, MacSignalSet* former) {
  // SIG_BLOCK, SIG_UNBLOCK and SIG_SETMASK: 1, 2 and 3 there, one less here.
  const sigset_t signals = LinuxSignals(set == nullptr ? 0 : *set);
  sigset_t before;
  const int result = sigprocmask(how - 1, set == nullptr ? nullptr : &signals, &before);
  if (former != nullptr) {
    *former = MacSignals(before);
  }
  return result;
}

int Kill(pid_t process, int signal) { return kill(process, LinuxSignal(signal)); }

int MacWaitStatus(int status) {
  if (WIFSIGNALED(status)) {
    return (status & ~0x7F) | MacSignal(WTERMSIG(status));
  }
  return WIFSTOPPED(status) ? MacSignal(WSTOPSIG(status)) << 8 | 0x7F : status;
}

pid_t WaitPid(pid_t process, int* status, int options) {  // WNOHANG 1, WUNTRACED 2: the same
  int linux = 0;
  const pid_t ended = waitpid(process, &linux, options);
  if (ended > 0 && status != nullptr) {
    *status = MacWaitStatus(linux);
  }
  return ended;
}

int PClose(std::FILE* stream) { return MacWaitStatus(pclose(stream)); }
int System(const char* command) { return MacWaitStatus(std::system(command)); }

struct MacUser {
  char *name, *password = nullptr;
  uid_t user;
  gid_t group;
  std::int64_t changed = 0;
  char *accessClass = nullptr, *fullName = nullptr, *folder = nullptr, *shell = nullptr;
  std::int64_t expires = 0;
};

MacUser* GetPwNam(const char* name) {
  thread_local MacUser user;
  const passwd* const linux = getpwnam(name);
  if (linux != nullptr) {
    user = {.name = linux->pw_name, .user = linux->pw_uid, .group = linux->pw_gid};
  }
  return linux == nullptr ? nullptr : &user;
}

// --- Waiting ------------------------------------------------------------------------------------

int PSelect(int count, fd_set* readable, fd_set* writable, fd_set* failed, const timespec* timeout,
            const MacSignalSet* mask) {
  const sigset_t signals = LinuxSignals(mask == nullptr ? 0 : *mask);
  // The sets are the same: bit 0 of the first byte is descriptor 0, 1,024 in all.
  return count > FD_SETSIZE ? Fail(EINVAL)
                            : pselect(count, readable, writable, failed, timeout,
                                      mask == nullptr ? nullptr : &signals);
}

// Sixteen bytes there too, but the microseconds are 32 bits and the rest may hold anything.
struct MacTime {
  std::int64_t seconds;
  std::int32_t microseconds;
};

int Select(int count, fd_set* readable, fd_set* writable, fd_set* failed, const MacTime* timeout) {
  timespec known = {};
  if (timeout != nullptr) {  // microseconds for a second and more are too many nanoseconds, too
    known = {timeout->seconds, timeout->microseconds * 1000L};
  }
  return PSelect(count, readable, writable, failed, timeout == nullptr ? nullptr : &known, nullptr);
}

// FD_SET and FD_ISSET ask it. 1: the descriptor has a place in a set.
int CheckSetOverflow(int descriptor, const void* /*set*/, int unlimited) {
  if (descriptor >= 0 && (descriptor < FD_SETSIZE || unlimited != 0)) {
    return 1;
  }
  errno = EINVAL;
  return 0;
}

}  // namespace

void AddSystemCalls(Imports& imports) {
  Add(imports, "___error", Error, "_socket", Socket, "_bind", Taking<bind>, "_connect",
      Taking<connect>, "_accept", FillingIn<accept>, "_getsockname", FillingIn<getsockname>,
      "_recv", Recv, "_recvfrom", RecvFrom, "_recvmsg", RecvMsg, "_send", Send, "_sendto", SendTo,
      "_sendmsg", SendMsg, "_setsockopt", SetSockOpt, "_inet_ntop", INetNToP, "_inet_pton",
      INetPToN, "_select$1050", Select, "_select", Select, "_pselect$1050", PSelect,
      "___darwin_check_fd_set_overflow", CheckSetOverflow, "_open", Open, "_fcntl", FCntl, "_ioctl",
      IOCtl, "_fnmatch", FnMatch, "_write", Write, "_stat$INODE64", StatOf<const char*, stat>,
      "_lstat$INODE64", StatOf<const char*, lstat>, "_fstat$INODE64", StatOf<int, fstat>, "_mmap",
      MMap, "_sigaction", SigAction, "_sigprocmask", SigProcMask, "_kill", Kill, "_waitpid",
      WaitPid, "_pclose", PClose, "_system", System, "_getpwnam", GetPwNam);
}
