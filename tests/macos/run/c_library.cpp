#include <cxxabi.h>
#include <dlfcn.h>
#include <locale.h>
#include <pthread.h>
#include <regex.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/wait.h>
#include <unistd.h>

#include <wchar.h>
#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/macos/run/imports.h"

namespace {

// --- Streams ------------------------------------------------------------------------------------

// Variables of the program's: it may put a stream of its own in their place, and printf follows.
std::FILE* g_stdin = stdin;
std::FILE* g_stdout = stdout;
std::FILE* g_stderr = stderr;

int PrintF(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vfprintf(g_stdout, format, arguments);
  va_end(arguments);
  return length;
}

int VPrintF(const char* format, std::va_list arguments) {
  return std::vfprintf(g_stdout, format, arguments);
}

int PutChar(int character) { return std::fputc(character, g_stdout); }

int PutS(const char* line) {
  flockfile(g_stdout);
  const bool written = std::fputs(line, g_stdout) != EOF && std::fputc('\n', g_stdout) != EOF;
  funlockfile(g_stdout);
  return written ? 0 : EOF;
}

// A stream of functions of the program's, which take and return int there.
struct Functions {
  const void* cookie;
  int (*read)(const void*, char*, int);
  int (*write)(const void*, const char*, int);
  int (*close)(const void*);
};

ssize_t CallRead(void* stream, char* buffer, std::size_t size) {
  const auto* const own = static_cast<const Functions*>(stream);
  return own->read(own->cookie, buffer, static_cast<int>(size));
}

// -1 is a failure there; here it is 0 that says so.
ssize_t CallWrite(void* stream, const char* bytes, std::size_t size) {
  const auto* const own = static_cast<const Functions*>(stream);
  const int written = own->write(own->cookie, bytes, static_cast<int>(size));
  return written == -1 ? 0 : written;
}

int CallClose(void* stream) {
  const auto* const own = static_cast<const Functions*>(stream);
  const int result = own->close == nullptr ? 0 : own->close(own->cookie);
  delete own;
  return result;
}

std::FILE* FunOpen(const void* cookie, int (*read)(const void*, char*, int),
                   int (*write)(const void*, const char*, int), const void* seek,
                   int (*close)(const void*)) {
  if (seek != nullptr || (read != nullptr && write != nullptr)) {
    EndUnwritten("funopen for more than one way");
  }
  return fopencookie(new Functions{cookie, read, write, close}, read == nullptr ? "w" : "r",
                     {read == nullptr ? nullptr : CallRead, write == nullptr ? nullptr : CallWrite,
                      nullptr, CallClose});
}

int PClose(std::FILE* stream) { return MacWaitStatus(pclose(stream)); }

int System(const char* command) { return MacWaitStatus(std::system(command)); }

const char* StrError(int error) { return strerror(LinuxError(error)); }

int StrErrorR(int error, char* text, std::size_t size) {
  std::snprintf(text, size, "%s", StrError(error));
  return 0;
}

// --- Characters and locales ---------------------------------------------------------------------

// There is the locale "C" and no other. Functions that take a locale are bound to those that take
// none: it is their last argument.

// A table that the macros of <ctype.h> read: kinds, lower and upper case of the first 256.
struct RuneLocale {
  char magic[8], encoding[32];
  void* functions[2];
  std::int32_t invalid;
  std::uint32_t kinds[256];
  std::int32_t lower[256], upper[256];
  std::uint64_t ranges[3][2];
  void* more;
  std::int32_t sizeOfMore, classes;
  void* names;
};
static_assert(offsetof(RuneLocale, kinds) == 60);

RuneLocale MakeRuneLocale() {
  constexpr std::pair<int (*)(int), std::uint32_t> kKinds[] = {
      {isalpha, 0x100},    {iscntrl, 0x200},   {isdigit, 0x400},  {isgraph, 0x800},
      {islower, 0x1000},   {ispunct, 0x2000},  {isspace, 0x4000}, {isupper, 0x8000},
      {isxdigit, 0x10000}, {isblank, 0x20000}, {isprint, 0x40000}};
  RuneLocale table = {"RuneMag", "NONE", {}, 0, {}, {}, {}, {}, nullptr, 0, 0, nullptr};
  for (int character = 0; character < 256; ++character) {
    for (const auto& [is, bit] : kKinds) {
      table.kinds[character] |= is(character) != 0 ? bit : 0;
    }
    table.lower[character] = std::tolower(character);
    table.upper[character] = std::toupper(character);
  }
  return table;
}

RuneLocale g_runeLocale = MakeRuneLocale();

int MaskRune(int character, unsigned long mask) {
  return character < 0 || character > 255 ? 0
                                          : static_cast<int>(g_runeLocale.kinds[character] & mask);
}

int BytesOfACharacter() { return 1; }

int FreeLocale(const void* /*locale*/) { return 0; }

int SnPrintFL(char* text, std::size_t size, const void* /*locale*/, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int length = std::vsnprintf(text, size, format, arguments);
  va_end(arguments);
  return length;
}

int AsPrintFL(char** text, const void* /*locale*/, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int length = vasprintf(text, format, arguments);
  va_end(arguments);
  return length;
}

int SScanFL(const char* text, const void* /*locale*/, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const int fields = std::vsscanf(text, format, arguments);
  va_end(arguments);
  return fields;
}

void BZero(void* bytes, std::size_t size) { std::memset(bytes, 0, size); }

std::uint32_t Arc4Random() {
  std::uint32_t value = 0;
  while (getrandom(&value, sizeof(value), 0) != sizeof(value)) {
  }
  return value;
}

// Messages in other languages: there are none.
// NOLINTNEXTLINE(performance-no-int-to-ptr): the value that says so
void* CatOpen(const char* /*name*/, int /*flag*/) { return reinterpret_cast<void*>(-1); }

// --- Regular expressions ------------------------------------------------------------------------

struct MacRegex {
  int magic;
  std::size_t groups;
  const char* end;
  regex_t* own;  // behind a pointer there too
};

struct MacMatch {
  std::int64_t begin, end;
};

int RegComp(MacRegex* regex, const char* pattern, int flags) {
  // REG_EXTENDED 1 and REG_ICASE 2 are the same; REG_NOSUB 4 and REG_NEWLINE 8 have changed places.
  const int known =
      (flags & 3) | ((flags & 4) != 0 ? REG_NOSUB : 0) | ((flags & 8) != 0 ? REG_NEWLINE : 0);
  regex->own = new regex_t;
  const int error = regcomp(regex->own, pattern, known);
  regex->groups = regex->own->re_nsub;
  return error;
}

int RegExec(const MacRegex* regex, const char* text, std::size_t count, MacMatch* matches,
            int flags) {
  std::vector<regmatch_t> own(count);
  const int error = regexec(regex->own, text, count, own.data(), flags);
  for (std::size_t i = 0; error == 0 && i < count; ++i) {
    matches[i] = {own[i].rm_so, own[i].rm_eo};
  }
  return error;
}

void RegFree(MacRegex* regex) {
  regfree(regex->own);
  delete std::exchange(regex->own, nullptr);
}

// --- Time ---------------------------------------------------------------------------------------

int ClockGetTime(int clock, timespec* time) {
  switch (clock) {
    case 0:
      return clock_gettime(CLOCK_REALTIME, time);
    case 4:  // CLOCK_MONOTONIC_RAW
    case 6:  // CLOCK_MONOTONIC
    case 8:  // CLOCK_UPTIME_RAW
      return clock_gettime(CLOCK_MONOTONIC, time);
    default:
      errno = EINVAL;
      return -1;
  }
}

// --- Threads ------------------------------------------------------------------------------------

// macOS's record of a mutex, a condition variable and the like: a signature, and room. glibc's own
// do not all fit into it, so they lie behind a pointer, from the first use of one that no function
// has initialised.
template <typename T>
struct Record {
  long signature;
  std::atomic<T*> own;

  T* Get() {
    T* there = own.load(std::memory_order_acquire);
    if (there == nullptr) {
      T* const made = new T{};  // what PTHREAD_MUTEX_INITIALIZER and its kin stand for
      if (own.compare_exchange_strong(there, made)) {
        return made;
      }
      delete made;
    }
    return there;
  }

  void Forget() { delete own.exchange(nullptr); }
};

// One for each kind of record: what takes no more than the record.
template <typename T, int (*Call)(T*)>
int OnRecord(Record<T>* record) {
  return MacError(Call(record->Get()));
}

template <typename T, int (*Destroy)(T*)>
int DestroyRecord(Record<T>* record) {
  const int error = Destroy(record->Get());
  record->Forget();
  return MacError(error);
}

int MutexInit(Record<pthread_mutex_t>* record, const void* /*attributes: nobody has any*/) {
  record->own = new pthread_mutex_t{};
  return 0;
}

int CondWait(Record<pthread_cond_t>* condition, Record<pthread_mutex_t>* mutex) {
  return MacError(pthread_cond_wait(condition->Get(), mutex->Get()));
}

int CondTimedWait(Record<pthread_cond_t>* condition, Record<pthread_mutex_t>* mutex,
                  const timespec* until) {
  return MacError(pthread_cond_timedwait(condition->Get(), mutex->Get(), until));
}

struct Once {
  long signature;
  pthread_once_t own;
};

int CallOnce(Once* once, void (*function)()) { return pthread_once(&once->own, function); }

int KeyCreate(unsigned long* key, void (*destroy)(void*)) {
  pthread_key_t own = 0;
  const int error = pthread_key_create(&own, destroy);
  *key = own;
  return MacError(error);
}

int KeyDelete(unsigned long key) {
  return MacError(pthread_key_delete(static_cast<pthread_key_t>(key)));
}

// A thread there: the address of its record. Records are never used again, so that a second look
// for a thread that has been joined finds that it is gone; glibc would follow it into nothing.
struct Thread {
  pthread_t own = 0;
  void* (*body)(void*) = nullptr;
  void* argument = nullptr;
  std::atomic<bool> mayBeJoined{true};
};

thread_local Thread* g_self = nullptr;

void* RunThread(void* thread) {
  g_self = static_cast<Thread*>(thread);
  return g_self->body(g_self->argument);
}

Thread* Self() {
  if (g_self == nullptr) {
    g_self = new Thread;  // the first thread
    g_self->own = pthread_self();
  }
  return g_self;
}

int EqualThreads(const Thread* one, const Thread* other) { return one == other ? 1 : 0; }

int CreateThread(Thread** result, const void* attributes, void* (*body)(void*), void* argument) {
  if (attributes != nullptr) {
    return EINVAL;  // nobody has asked for any yet
  }
  auto* const thread = new Thread;
  thread->body = body;
  thread->argument = argument;
  *result = thread;
  return MacError(pthread_create(&thread->own, nullptr, RunThread, thread));
}

int JoinThread(Thread* thread, void** result) {
  return thread->mayBeJoined.exchange(false) ? MacError(pthread_join(thread->own, result)) : ESRCH;
}

int DetachThread(Thread* thread) {
  return thread->mayBeJoined.exchange(false) ? MacError(pthread_detach(thread->own)) : ESRCH;
}

// The kernel's number for it, of which only the own one is asked for.
int MachThread(const Thread* /*self*/) { return gettid(); }

// Mach's task: this process. A list of threads, whose memory the caller gives back.
int g_task = 1;

int TaskThreads(int /*task*/, std::uint32_t** threads, std::uint32_t* count) {
  const std::filesystem::directory_iterator all("/proc/self/task");
  *count = static_cast<std::uint32_t>(std::distance(begin(all), end(all)));
  *threads =
      static_cast<std::uint32_t*>(mmap(nullptr, *count * sizeof(**threads), PROT_READ | PROT_WRITE,
                                       MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
  return 0;
}

int VmDeallocate(int /*task*/, std::uintptr_t address, std::size_t size) {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): its type there
  return munmap(reinterpret_cast<void*>(address), size);
}

void ThreadAtExit(void (*destroy)(void*), void* object) {
  abi::__cxa_thread_atexit(destroy, object, &g_task);  // a place in this program, which stays
}

// --- What is the same ---------------------------------------------------------------------------

constexpr char kSame[] =
    "abort access asprintf atoi calloc ceilf chdir chmod chown close closedir dup dup2 _exit "
    "exit fchmod fchown fclose fdopen feof ferror fflush fgetc fgets fileno flock fopen fork "
    "fprintf fputc fputs fputwc fread free fseek fseeko fsync ftell ftello ftruncate fwrite getc "
    "getcwd getegid getenv geteuid getgid getgrnam gethostname getpid getppid gettimeofday "
    "getuid getwc gmtime gmtime_r inet_addr initgroups isatty link listen localtime localtime_r "
    "lseek malloc memchr memcmp memcpy memmove memset mkdir mkdtemp mkfifo mkstemp mktime munmap "
    "nanosleep nextafter perror pipe poll popen posix_memalign pread pthread_getspecific "
    "pthread_setspecific pwrite qsort read readlink realloc remove rename rewind rmdir "
    "sched_yield setegid setenv seteuid setgid setgroups setsid setuid setvbuf shutdown sleep "
    "snprintf socketpair sprintf sscanf strcasecmp strchr strcmp strcpy strcspn strdup strftime "
    "strlen strncasecmp strncmp strncpy strrchr strspn strstr strtod strtok strtok_r strtol "
    "strtold strtoll strtoul strtoull symlink time tmpfile tolower toupper ttyname umask ungetc "
    "ungetwc unlink unsetenv usleep vfprintf vsnprintf wcslen wmemchr writev";

// The same but for a locale behind the other arguments.
constexpr char kSameWithLocale[] =
    "localeconv mbrlen mbrtowc mbsnrtowcs mbsrtowcs mbtowc strcoll strftime strtod strtof strtold "
    "strtoll strtoull strxfrm wcrtomb wcscoll wcsnrtombs wcsxfrm";

}  // namespace

void AddLibrary(Imports& imports) {
  Add(imports, "___stdinp", &g_stdin, "___stdoutp", &g_stdout, "___stderrp", &g_stderr,
      "__DefaultRuneLocale", &g_runeLocale, "_mach_task_self_", &g_task, "_printf", PrintF,
      "_vprintf", VPrintF, "_putchar", PutChar, "_puts", PutS, "_funopen", FunOpen, "_pclose",
      PClose, "_system", System, "_strerror", StrError, "_strerror_r", StrErrorR, "___maskrune",
      MaskRune, "___maskrune_l", MaskRune, "___tolower", tolower, "___toupper", toupper,
      "____mb_cur_max_l", BytesOfACharacter, "_freelocale", FreeLocale, "_snprintf_l", SnPrintFL,
      "_asprintf_l", AsPrintFL, "_sscanf_l", SScanFL, "_catopen", CatOpen, "___bzero", BZero,
      "_arc4random", Arc4Random, "_regcomp", RegComp, "_regexec", RegExec, "_regfree", RegFree,
      "_clock_gettime", ClockGetTime, "_pthread_mutex_init", MutexInit, "_pthread_mutex_destroy",
      DestroyRecord<pthread_mutex_t, pthread_mutex_destroy>, "_pthread_mutex_lock",
      OnRecord<pthread_mutex_t, pthread_mutex_lock>, "_pthread_mutex_trylock",
      OnRecord<pthread_mutex_t, pthread_mutex_trylock>, "_pthread_mutex_unlock",
      OnRecord<pthread_mutex_t, pthread_mutex_unlock>, "_pthread_cond_destroy",
      DestroyRecord<pthread_cond_t, pthread_cond_destroy>, "_pthread_cond_broadcast",
      OnRecord<pthread_cond_t, pthread_cond_broadcast>, "_pthread_cond_wait", CondWait,
      "_pthread_cond_timedwait", CondTimedWait, "_pthread_rwlock_rdlock",
      OnRecord<pthread_rwlock_t, pthread_rwlock_rdlock>, "_pthread_rwlock_wrlock",
      OnRecord<pthread_rwlock_t, pthread_rwlock_wrlock>, "_pthread_rwlock_unlock",
      OnRecord<pthread_rwlock_t, pthread_rwlock_unlock>, "_pthread_once", CallOnce,
      "_pthread_key_create", KeyCreate, "_pthread_key_delete", KeyDelete, "_pthread_equal",
      EqualThreads, "_pthread_create", CreateThread, "_pthread_join", JoinThread, "_pthread_detach",
      DetachThread, "_pthread_self", Self, "_pthread_mach_thread_np", MachThread, "_task_threads",
      TaskThreads, "_vm_deallocate", VmDeallocate, "___cxa_atexit", abi::__cxa_atexit,
      "__tlv_atexit", ThreadAtExit);

  std::string name;
  for (std::istringstream names(kSame); names >> name;) {
    imports.emplace("_" + name, dlsym(RTLD_DEFAULT, name.c_str()));
  }
  for (std::istringstream names(kSameWithLocale); names >> name;) {
    imports.emplace("_" + name + "_l", dlsym(RTLD_DEFAULT, name.c_str()));
  }
}
