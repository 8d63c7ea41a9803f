// Streams, characters, locales, time, threads, and what is the same on both systems.
#include <cxxabi.h>
#include <dlfcn.h>
#include <pthread.h>
#include <strings.h>
#include <sys/random.h>
#include <unistd.h>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <sstream>
#include <string>
#include <utility>

#include "tests/macos/run/imports.h"

namespace {

// --- Streams ------------------------------------------------------------------------------------

// A function of the program's that takes what is written to a stream, with int for sizes.
struct Writer {
  const void* cookie;
  int (*write)(const void*, const char*, int);
};

// -1 is a failure there; here it is 0 that says so.
ssize_t CallWrite(void* stream, const char* bytes, std::size_t size) {
  const auto* const writer = static_cast<const Writer*>(stream);
  const int written = writer->write(writer->cookie, bytes, static_cast<int>(size));
  return written == -1 ? 0 : written;
}

ssize_t CallRead(void* /*stream*/, char* /*buffer*/, std::size_t /*size*/) {
  EndUnwritten("a read function of funopen");
}

int Close(void* stream) {
  delete static_cast<const Writer*>(stream);
  return 0;
}

std::FILE* FunOpen(const void* cookie, const void* /*read*/,
                   int (*write)(const void*, const char*, int), const void* seek,
                   const void* close) {
  if (seek != nullptr || close != nullptr) {
    EndUnwritten("funopen with more than reading or writing");
  }
  return fopencookie(new Writer{cookie, write}, write == nullptr ? "r" : "w",
                     {CallRead, CallWrite, nullptr, Close});
}

const char* StrError(int error) { return strerror(LinuxError(error)); }

int StrErrorR(int error, char* text, std::size_t size) {
  std::snprintf(text, size, "%s", StrError(error));
  return 0;
}

// --- Characters and locales ---------------------------------------------------------------------

// There is the locale "C" and no other. Functions that take a locale are bound to those that take
// none: it is their last argument, or the one before the format.
template <auto Call, typename... Before>
int WithoutLocale(Before... before, const void* /*locale*/, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): the line above is what initialises it
  const int result = Call(before..., format, arguments);
  va_end(arguments);
  return result;
}

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
  RuneLocale table = {};
  std::strcpy(table.magic, "RuneMag");
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

// --- Time and chance ----------------------------------------------------------------------------

int ClockGetTime(int clock, timespec* time) {
  const bool monotonic = clock == 4 || clock == 6;  // the raw one, and the other
  if (clock != 0 && !monotonic) {
    EndUnwritten("a clock");
  }
  return clock_gettime(monotonic ? CLOCK_MONOTONIC : CLOCK_REALTIME, time);
}

std::uint32_t Arc4Random() {
  std::uint32_t value = 0;
  while (getrandom(&value, sizeof(value), 0) != sizeof(value)) {
  }
  return value;
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
};

template <typename T>
T RecordOf(int (*call)(T*));

// One for each kind of record: what takes no more than the record.
template <auto Call>
int On(Record<decltype(RecordOf(Call))>* record) {
  return MacError(Call(record->Get()));
}

template <auto Destroy>
int Destroyed(Record<decltype(RecordOf(Destroy))>* record) {
  const int error = On<Destroy>(record);
  delete record->own.exchange(nullptr);
  return error;
}

int MutexInit(Record<pthread_mutex_t>* record, const void* /*attributes: nobody has any*/) {
  record->own = nullptr;
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
int MachThread() { return gettid(); }

// Mach's list of the threads is refused: GoogleTest alone asks, for a warning before it forks.
int g_task = 0;
int TaskThreads() { return 5; }  // KERN_FAILURE

void ThreadAtExit(void (*destroy)(void*), void* object) {
  abi::__cxa_thread_atexit(destroy, object, &g_task);  // a place in what stays
}

// --- What is the same ---------------------------------------------------------------------------

constexpr char kSame[] =
    "_exit abort access asprintf calloc ceilf chdir chmod chown close dup dup2 exit fchmod "
    "fclose fdopen ferror fflush fgets fileno fopen fork fprintf fputc fputs fputwc fread free "
    "fseek fseeko ftell ftello fwrite getc getcwd getegid getenv geteuid getpid getwc gmtime_r "
    "inet_addr isatty link listen localeconv localtime_r malloc memchr memcmp memcpy memmove "
    "memset mkdir mkdtemp mkfifo mkstemp munmap nanosleep nextafter perror pipe poll popen "
    "posix_memalign pread printf pthread_equal pthread_getspecific pthread_key_delete "
    "pthread_setspecific puts read realloc remove rename rewind rmdir sched_yield setgid "
    "setgroups setuid setvbuf snprintf socketpair sscanf strcasecmp strchr strcmp strcpy "
    "strdup strftime strlen strncmp strrchr strstr strtod strtol strtold strtoll strtoull "
    "symlink time tmpfile ttyname umask ungetc ungetwc unlink vfprintf vprintf vsnprintf wcslen "
    "wmemchr";

// The same but for a locale behind the other arguments.
constexpr char kSameWithLocale[] =
    "localeconv mbrlen mbrtowc mbsnrtowcs mbsrtowcs mbtowc strcoll strftime strtod strtof strtold "
    "strtoll strtoull strxfrm wcrtomb wcscoll wcsnrtombs wcsxfrm";

}  // namespace

void AddLibrary(Imports& imports) {
  // printf and its like write to whatever stream the program puts in the place of stdout.
  Add(imports, "___stdinp", &stdin, "___stdoutp", &stdout, "___stderrp", &stderr, "_funopen",
      FunOpen, "_strerror", StrError, "_strerror_r", StrErrorR);
  Add(imports, "__DefaultRuneLocale", &g_runeLocale, "___tolower", tolower, "___toupper", toupper,
      "_snprintf_l", WithoutLocale<vsnprintf, char*, std::size_t>, "_asprintf_l",
      WithoutLocale<vasprintf, char**>);
  Add(imports, "___bzero", bzero, "_clock_gettime", ClockGetTime, "_arc4random", Arc4Random);
  Add(imports, "_pthread_mutex_init", MutexInit, "_pthread_mutex_destroy",
      Destroyed<pthread_mutex_destroy>, "_pthread_mutex_lock", On<pthread_mutex_lock>,
      "_pthread_mutex_trylock", On<pthread_mutex_trylock>, "_pthread_mutex_unlock",
      On<pthread_mutex_unlock>, "_pthread_cond_destroy", Destroyed<pthread_cond_destroy>,
      "_pthread_cond_broadcast", On<pthread_cond_broadcast>, "_pthread_cond_wait", CondWait,
      "_pthread_cond_timedwait", CondTimedWait, "_pthread_once", CallOnce, "_pthread_key_create",
      KeyCreate);
  Add(imports, "_pthread_create", CreateThread, "_pthread_join", JoinThread, "_pthread_detach",
      DetachThread, "_pthread_self", Self, "_pthread_mach_thread_np", MachThread,
      "_mach_task_self_", &g_task, "_task_threads", TaskThreads, "___cxa_atexit", abi::__cxa_atexit,
      "__tlv_atexit", ThreadAtExit);

  for (const auto& [names, suffix] : {std::pair{kSame, ""}, std::pair{kSameWithLocale, "_l"}}) {
    std::istringstream each(names);
    for (std::string name; each >> name;) {
      imports.emplace("_" + name + suffix, dlsym(RTLD_DEFAULT, name.c_str()));
    }
  }
}
