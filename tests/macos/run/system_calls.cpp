#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>
#include <vector>

#include "tests/macos/run/imports.h"

namespace {

// --- Numbers ------------------------------------------------------------------------------------

struct Pair {
  int mac, linux;
};

template <std::size_t N>
int ToMac(const Pair (&pairs)[N], int linux, int otherwise) {
  const auto* const found =
      std::find_if(pairs, pairs + N, [&](const Pair& pair) { return pair.linux == linux; });
  return found == pairs + N ? otherwise : found->mac;
}

template <std::size_t N>
int ToLinux(const Pair (&pairs)[N], int mac, int otherwise) {
  const auto* const found =
      std::find_if(pairs, pairs + N, [&](const Pair& pair) { return pair.mac == mac; });
  return found == pairs + N ? otherwise : found->linux;
}

// Bits of `flags` by the table. One that is not in it ends the run.
template <std::size_t N>
int FlagsToLinux(const Pair (&pairs)[N], int flags) {
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

template <std::size_t N>
int FlagsToMac(const Pair (&pairs)[N], int flags) {
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

constexpr Pair kSignals[] = {{10, SIGBUS},  {12, SIGSYS},  {16, SIGURG},  {17, SIGSTOP},
                             {18, SIGTSTP}, {19, SIGCONT}, {20, SIGCHLD}, {23, SIGIO},
                             {30, SIGUSR1}, {31, SIGUSR2}, {7, 0},        {29, 0}};

constexpr Pair kFamilies[] = {{AF_UNSPEC, AF_UNSPEC}, {1, AF_UNIX}, {2, AF_INET}, {30, AF_INET6}};

constexpr Pair kOpenFlags[] = {{1, O_WRONLY},           {2, O_RDWR},           {4, O_NONBLOCK},
                               {8, O_APPEND},           {0x100, O_NOFOLLOW},   {0x200, O_CREAT},
                               {0x400, O_TRUNC},        {0x800, O_EXCL},       {0x20000, O_NOCTTY},
                               {0x100000, O_DIRECTORY}, {0x1000000, O_CLOEXEC}};

constexpr Pair kMessageFlags[] = {{0x1, MSG_OOB},       {0x2, MSG_PEEK},        {0x8, MSG_EOR},
                                  {0x10, MSG_TRUNC},    {0x20, MSG_CTRUNC},     {0x40, MSG_WAITALL},
                                  {0x80, MSG_DONTWAIT}, {0x80000, MSG_NOSIGNAL}};

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
int MacSignal(int linuxSignal) { return ToMac(kSignals, linuxSignal, linuxSignal); }
int LinuxSignal(int macSignal) { return ToLinux(kSignals, macSignal, macSignal); }

sigset_t LinuxSignals(MacSignalSet set) {
  sigset_t signals;
  sigemptyset(&signals);
  for (int signal = 1; signal <= 31; ++signal) {
    if ((set >> (signal - 1) & 1) != 0) {
      sigaddset(&signals, LinuxSignal(signal));
    }
  }
  return signals;
}

MacSignalSet MacSignals(const sigset_t& set) {
  MacSignalSet signals = 0;
  for (int signal = 1; signal <= 31; ++signal) {
    if (sigismember(&set, LinuxSignal(signal)) == 1) {
      signals |= MacSignalSet{1} << (signal - 1);
    }
  }
  return signals;
}

int MacWaitStatus(int status) {
  if (WIFSIGNALED(status)) {
    return (status & ~0x7F) | MacSignal(WTERMSIG(status));
  }
  return WIFSTOPPED(status) ? MacSignal(WSTOPSIG(status)) << 8 | 0x7F : status;
}

namespace {

int* Error() {
  // What the C library has left since the last look: nothing else has to translate its errors.
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
  socklen_t length = 0;

  sockaddr* get() { return reinterpret_cast<sockaddr*>(&linux); }
};

int FamilyOf(int sock) {
  int family = 0;
  socklen_t size = sizeof(family);
  return getsockopt(sock, SOL_SOCKET, SO_DOMAIN, &family, &size) == 0 ? family : -1;
}

// The kernel there takes the length for the address's own, and an IPv4 socket no other than 16. It
// forgives a family of 0 on such a socket; this does not, so that a family that stands in the place
// of the length is found.
bool FromMac(int sock, const void* address, socklen_t length, Address& result) {
  const int family = FamilyOf(sock);
  const auto* const bytes = static_cast<const std::uint8_t*>(address);
  if (family == -1) {
    return false;
  }
  if (length < 2 || length > sizeof(result.linux) ||
      (family == AF_INET && length != sizeof(sockaddr_in)) ||
      (family == AF_INET6 && length != sizeof(sockaddr_in6))) {
    errno = EINVAL;
    return false;
  }
  if (ToLinux(kFamilies, bytes[1], -1) != family) {
    errno = EAFNOSUPPORT;
    return false;
  }
  std::memcpy(&result.linux, address, length);
  result.linux.ss_family = static_cast<sa_family_t>(family);
  result.length = length;
  return true;
}

// As much of it as there is room for. `*room` becomes what was written.
void ToMac(const Address& address, void* result, socklen_t* room) {
  if (result == nullptr || room == nullptr) {
    return;
  }
  Address mac = address;
  std::uint8_t head[2] = {static_cast<std::uint8_t>(address.length),
                          static_cast<std::uint8_t>(ToMac(kFamilies, address.linux.ss_family, 0))};
  std::memcpy(&mac.linux, head, sizeof(head));
  *room = std::min(*room, address.length);
  std::memcpy(result, &mac.linux, *room);
}

// --- Sockets ------------------------------------------------------------------------------------

int Socket(int family, int type, int protocol) {
  const int known = ToLinux(kFamilies, family, -1);
  return known == -1 ? Fail(EAFNOSUPPORT) : socket(known, type, protocol);
}

int Bind(int sock, const void* address, socklen_t length) {
  Address linux;
  return FromMac(sock, address, length, linux) ? bind(sock, linux.get(), linux.length) : -1;
}

int Connect(int sock, const void* address, socklen_t length) {
  Address linux;
  return FromMac(sock, address, length, linux) ? connect(sock, linux.get(), linux.length) : -1;
}

// A call that fills in an address.
template <typename Call>
auto WithAddress(void* address, socklen_t* room, Call call) {
  Address linux;
  linux.length = sizeof(linux.linux);
  const auto result = call(linux.get(), &linux.length);
  if (result != -1) {
    ToMac(linux, address, room);
  }
  return result;
}

int Accept(int sock, void* address, socklen_t* room) {
  return WithAddress(address, room,
                     [&](sockaddr* to, socklen_t* size) { return accept(sock, to, size); });
}

int GetSockName(int sock, void* address, socklen_t* room) {
  return WithAddress(address, room,
                     [&](sockaddr* to, socklen_t* size) { return getsockname(sock, to, size); });
}

ssize_t RecvFrom(int sock, void* buffer, std::size_t size, int flags, void* from, socklen_t* room) {
  return WithAddress(from, room, [&](sockaddr* to, socklen_t* length) {
    return recvfrom(sock, buffer, size, FlagsToLinux(kMessageFlags, flags), to, length);
  });
}

ssize_t Recv(int sock, void* buffer, std::size_t size, int flags) {
  return RecvFrom(sock, buffer, size, flags, nullptr, nullptr);
}

ssize_t SendTo(int sock, const void* bytes, std::size_t size, int flags, const void* to,
               socklen_t length) {
  const int known = FlagsToLinux(kMessageFlags, flags);
  Address linux;
  if (to == nullptr) {
    return send(sock, bytes, size, known);
  }
  return FromMac(sock, to, length, linux)
             ? sendto(sock, bytes, size, known, linux.get(), linux.length)
             : -1;
}

ssize_t Send(int sock, const void* bytes, std::size_t size, int flags) {
  return SendTo(sock, bytes, size, flags, nullptr, 0);
}

const char* INetNToP(int family, const void* address, char* text, socklen_t size) {
  return inet_ntop(ToLinux(kFamilies, family, -1), address, text, size);
}

int INetPToN(int family, const char* text, void* address) {
  return inet_pton(ToLinux(kFamilies, family, -1), text, address);
}

struct MacMessage {
  void* name;
  socklen_t nameLength;
  iovec* parts;
  int partCount;
  void* control;
  socklen_t controlLength;
  int flags;
};

// A control message there: length, level and type in 12 bytes, and all of it at multiples of 4.
struct MacControl {
  std::uint32_t length;
  int level, type;
};

std::size_t MacRoom(std::size_t size) { return (size + 3) & ~std::size_t{3}; }

// Fills `result` with what `message` carries; descriptors are all that is known to travel.
bool ControlToLinux(const MacMessage& message, std::vector<char>& result) {
  const auto* const control = static_cast<const char*>(message.control);
  for (std::size_t at = 0; at + sizeof(MacControl) <= message.controlLength;) {
    MacControl head;
    std::memcpy(&head, control + at, sizeof(head));
    if (head.length < sizeof(head) || head.length > message.controlLength - at ||
        head.level != kMacSocketLevel || head.type != SCM_RIGHTS) {
      errno = EINVAL;
      return false;
    }
    const std::size_t size = head.length - sizeof(head);
    const cmsghdr linux = {CMSG_LEN(size), SOL_SOCKET, SCM_RIGHTS};
    const std::size_t begin = result.size();
    result.resize(begin + CMSG_SPACE(size));
    std::memcpy(result.data() + begin, &linux, sizeof(linux));
    std::memcpy(result.data() + begin + CMSG_LEN(0), control + at + sizeof(head), size);
    at += MacRoom(head.length);
  }
  return true;
}

// What does not fit is cut off, as `message.flags` then says.
void ControlToMac(msghdr& linux, MacMessage& message) {
  socklen_t used = 0;
  for (cmsghdr* part = CMSG_FIRSTHDR(&linux); part != nullptr; part = CMSG_NXTHDR(&linux, part)) {
    const std::size_t size = part->cmsg_len - CMSG_LEN(0);
    const MacControl head = {static_cast<std::uint32_t>(sizeof(head) + size), kMacSocketLevel,
                             part->cmsg_type};
    if (part->cmsg_level != SOL_SOCKET || part->cmsg_type != SCM_RIGHTS ||
        used + head.length > message.controlLength) {
      message.flags |= 0x20;  // MSG_CTRUNC
      continue;
    }
    auto* const to = static_cast<char*>(message.control) + used;
    std::memcpy(to, &head, sizeof(head));
    std::memcpy(to + sizeof(head), CMSG_DATA(part), size);
    used += static_cast<socklen_t>(MacRoom(head.length));
  }
  message.controlLength = std::min(used, message.controlLength);
}

ssize_t SendMsg(int sock, const MacMessage* message, int flags) {
  Address to;
  std::vector<char> control;
  if ((message->name != nullptr && !FromMac(sock, message->name, message->nameLength, to)) ||
      !ControlToLinux(*message, control)) {
    return -1;
  }
  msghdr linux = {};
  linux.msg_name = message->name == nullptr ? nullptr : to.get();
  linux.msg_namelen = to.length;
  linux.msg_iov = message->parts;
  linux.msg_iovlen = static_cast<std::size_t>(message->partCount);
  linux.msg_control = control.data();
  linux.msg_controllen = control.size();
  return sendmsg(sock, &linux, FlagsToLinux(kMessageFlags, flags));
}

ssize_t RecvMsg(int sock, MacMessage* message, int flags) {
  // Twice the room: a head is longer here.
  alignas(cmsghdr) std::array<char, 1024> control;
  Address from;
  msghdr linux = {};
  linux.msg_name = from.get();
  linux.msg_namelen = sizeof(from.linux);
  linux.msg_iov = message->parts;
  linux.msg_iovlen = static_cast<std::size_t>(message->partCount);
  linux.msg_control = control.data();
  linux.msg_controllen = std::min(control.size(), std::size_t{message->controlLength} * 2);
  const ssize_t size = recvmsg(sock, &linux, FlagsToLinux(kMessageFlags, flags));
  if (size != -1) {
    message->flags = FlagsToMac(kMessageFlags, linux.msg_flags);
    from.length = linux.msg_namelen;
    ToMac(from, message->name, &message->nameLength);
    ControlToMac(linux, *message);
  }
  return size;
}

int SetSockOpt(int sock, int level, int option, const void* value, socklen_t size) {
  const int known = level == kMacSocketLevel ? ToLinux(kSocketOptions, option, -1) : -1;
  if (known == -1) {
    EndUnwritten("an option of setsockopt");
  }
  return setsockopt(sock, SOL_SOCKET, known, value, size);
}

// --- Waiting ------------------------------------------------------------------------------------

// Sixteen bytes there too, but the microseconds are 32 bits and the rest may hold anything.
struct MacTime {
  std::int64_t seconds;
  std::int32_t microseconds;

  timeval linux() const { return {seconds, microseconds}; }
};

// The sets are the same: bit 0 of the first byte is descriptor 0, 1,024 in all.
int Select(int count, fd_set* readable, fd_set* writable, fd_set* failed, const MacTime* timeout) {
  if (count > FD_SETSIZE ||
      (timeout != nullptr &&
       (timeout->seconds < 0 || timeout->microseconds < 0 || timeout->microseconds > 999'999))) {
    return Fail(EINVAL);
  }
  timeval left = timeout == nullptr ? timeval{} : timeout->linux();
  return select(count, readable, writable, failed, timeout == nullptr ? nullptr : &left);
}

int PSelect(int count, fd_set* readable, fd_set* writable, fd_set* failed, const timespec* timeout,
            const MacSignalSet* mask) {
  const sigset_t signals = mask == nullptr ? sigset_t{} : LinuxSignals(*mask);
  return count > FD_SETSIZE ? Fail(EINVAL)
                            : pselect(count, readable, writable, failed, timeout,
                                      mask == nullptr ? nullptr : &signals);
}

// FD_SET and FD_ISSET ask it. 1: the descriptor has a place in a set.
int CheckSetOverflow(int descriptor, const void* /*set*/, int unlimited) {
  if (descriptor >= 0 && (descriptor < FD_SETSIZE || unlimited != 0)) {
    return 1;
  }
  errno = EINVAL;
  return 0;
}

// --- Files --------------------------------------------------------------------------------------

int Open(const char* path, int flags, ...) {
  std::va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & 0x200) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  return open(path, FlagsToLinux(kOpenFlags, flags), mode);
}

int FCntl(int descriptor, int command, ...) {
  std::va_list arguments;
  va_start(arguments, command);
  const long argument = va_arg(arguments, long);
  va_end(arguments);
  // F_DUPFD, F_GETFD, F_SETFD, F_GETFL and F_SETFL have the same numbers.
  int flags = 0;
  switch (command) {
    case F_GETFL:
      flags = fcntl(descriptor, F_GETFL);
      return flags == -1 ? -1 : FlagsToMac(kOpenFlags, flags);
    case F_SETFL:
      return fcntl(descriptor, F_SETFL, FlagsToLinux(kOpenFlags, static_cast<int>(argument)));
    case F_DUPFD:
    case F_GETFD:
    case F_SETFD:
      return fcntl(descriptor, command, static_cast<int>(argument));
    case 67:
      return fcntl(descriptor, F_DUPFD_CLOEXEC, static_cast<int>(argument));
    default:
      EndUnwritten("a command of fcntl");
  }
}

// A pipe takes 512 bytes in one piece there, and 4,096 here: what is longer may be cut, and then
// others may write in between.
constexpr std::size_t kPipePiece = 512;

ssize_t Write(int descriptor, const void* bytes, std::size_t size) {
  struct stat state = {};
  if (size <= kPipePiece || fstat(descriptor, &state) != 0 || !S_ISFIFO(state.st_mode)) {
    return write(descriptor, bytes, size);
  }
  std::size_t written = 0;
  while (written < size) {
    const ssize_t piece = write(descriptor, static_cast<const char*>(bytes) + written,
                                std::min(kPipePiece, size - written));
    if (piece == -1) {
      return written == 0 ? -1 : static_cast<ssize_t>(written);
    }
    written += static_cast<std::size_t>(piece);
  }
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

int ToMac(int result, const struct stat& linux, MacStat* mac) {
  if (result == 0) {
    *mac = {.device = static_cast<std::int32_t>(linux.st_dev),
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
  }
  return result;
}

template <typename Which, int (*Call)(Which, struct stat*)>
int StatOf(Which which, MacStat* result) {
  struct stat linux = {};
  return ToMac(Call(which, &linux), linux, result);
}

void* MMap(void* address, std::size_t size, int protection, int flags, int file, off_t offset) {
  constexpr int kAnonymous = 0x1000;  // the others that programs use have the same numbers
  const int known = (flags & ~kAnonymous) | ((flags & kAnonymous) != 0 ? MAP_ANONYMOUS : 0);
  return mmap(address, size, protection, known, file, offset);
}

// --- Signals and processes ----------------------------------------------------------------------

struct MacAction {
  void (*handler)(int);  // SIG_DFL and SIG_IGN are 0 and 1 on both
  MacSignalSet mask;
  int flags;
};

constexpr Pair kActionFlags[] = {{1, SA_ONSTACK},   {2, SA_RESTART},    {4, int(SA_RESETHAND)},
                                 {8, SA_NOCLDSTOP}, {0x10, SA_NODEFER}, {0x20, SA_NOCLDWAIT}};

// What the program has installed, by its own number of the signal.
std::array<void (*)(int), 32> g_handlers;

void Deliver(int linuxSignal) {
  const int signal = MacSignal(linuxSignal);
  g_handlers[static_cast<std::size_t>(signal)](signal);
}

int SigAction(int signal, const MacAction* action, MacAction* former) {
  if (signal < 1 || signal > 31) {
    return Fail(EINVAL);
  }
  auto& handler = g_handlers[static_cast<std::size_t>(signal)];
  struct sigaction before = {};
  int result = sigaction(LinuxSignal(signal), nullptr, &before);
  const MacAction old = {before.sa_handler == Deliver ? handler : before.sa_handler,
                         MacSignals(before.sa_mask), FlagsToMac(kActionFlags, before.sa_flags)};
  if (result == 0 && action != nullptr) {
    struct sigaction linux = {};
    linux.sa_flags = FlagsToLinux(kActionFlags, action->flags);
    linux.sa_mask = LinuxSignals(action->mask);
    const bool own = action->handler != SIG_DFL && action->handler != SIG_IGN;
    linux.sa_handler = own ? Deliver : action->handler;
    if (own) {
      handler = action->handler;
    }
    result = sigaction(LinuxSignal(signal), &linux, nullptr);
  }
  if (result == 0 && former != nullptr) {
    *former = old;
  }
  return result;
}

int SigProcMask(int how, const MacSignalSet* set, MacSignalSet* former) {
  // SIG_BLOCK, SIG_UNBLOCK and SIG_SETMASK: 1, 2 and 3 there, one less here.
  sigset_t before;
  const sigset_t signals = set == nullptr ? sigset_t{} : LinuxSignals(*set);
  const int result = sigprocmask(how - 1, set == nullptr ? nullptr : &signals, &before);
  if (result == 0 && former != nullptr) {
    *former = MacSignals(before);
  }
  return result;
}

int Kill(pid_t process, int signal) { return kill(process, LinuxSignal(signal)); }

pid_t WaitPid(pid_t process, int* status, int options) {  // WNOHANG 1, WUNTRACED 2: the same
  int linux = 0;
  const pid_t ended = waitpid(process, &linux, options);
  if (ended > 0 && status != nullptr) {
    *status = MacWaitStatus(linux);
  }
  return ended;
}

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

}  // namespace

void AddSystemCalls(Imports& imports) {
  Add(imports, "___error", Error, "_socket", Socket, "_bind", Bind, "_connect", Connect, "_accept",
      Accept, "_getsockname", GetSockName, "_recv", Recv, "_recvfrom", RecvFrom, "_recvmsg",
      RecvMsg, "_send", Send, "_sendto", SendTo, "_sendmsg", SendMsg, "_setsockopt", SetSockOpt,
      "_inet_ntop", INetNToP, "_inet_pton", INetPToN, "_select$1050", Select, "_pselect$1050",
      PSelect, "___darwin_check_fd_set_overflow", CheckSetOverflow, "_open", Open, "_fcntl", FCntl,
      "_write", Write, "_stat$INODE64", StatOf<const char*, stat>, "_lstat$INODE64",
      StatOf<const char*, lstat>, "_fstat$INODE64", StatOf<int, fstat>, "_mmap", MMap, "_sigaction",
      SigAction, "_sigprocmask", SigProcMask, "_kill", Kill, "_waitpid", WaitPid, "_getpwnam",
      GetPwNam);
}
