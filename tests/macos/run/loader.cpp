// Runs a program for macOS x86-64 in this Linux process, for tests.
//   run_macos_program [--library FILE]... [--without IMPORT]... PROGRAM [ARGUMENT]...
//
//   --library FILE     what FILE exports is there for the program, before what this program has
//   --without IMPORT   that one is missing, as on a macOS which does not have it yet
//
// An import that nobody has written ends the run with its name when it is called.
//
// Here is what the system's own loader does there: segments, rebases, binds, thread-local
// variables, initialisers, main. What imports are bound to is in system_calls.cpp and c_library.cpp.
// Files are trusted: a linker of ours has written them.
#include <arpa/inet.h>
#include <pthread.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/macos/run/imports.h"

namespace {

// --- Imports by their names ---------------------------------------------------------------------

constexpr int kExitUnwritten = 125;

Imports g_imports;
int g_argumentCount = 0;
char** g_arguments = nullptr;

// A function that ends the run with `name`.
const void* Missing(const std::string& name) {
  struct [[gnu::packed]] Code {
    std::uint8_t toRdi[2] = {0x48, 0xBF};  // movabs
    const char* name;
    std::uint8_t toRax[2] = {0x48, 0xB8};
    void (*function)(const char*) = EndUnwritten;
    std::uint8_t jumpToRax[2] = {0xFF, 0xE0};
  };
  void* const page = mmap(nullptr, sizeof(Code), PROT_READ | PROT_WRITE | PROT_EXEC,
                          MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    throw std::runtime_error("no room for a missing import");
  }
  return new (page) Code{.name = strdup(name.c_str())};
}

// What the import of that name is bound to. A weak one may be null.
const void* Find(const std::string& name, bool weak) {
  const auto found = g_imports.find(name);
  if (found != g_imports.end()) {
    return found->second;
  }
  return weak ? nullptr : Missing(name);
}

// --- The file format ----------------------------------------------------------------------------

// Everything is little-endian but the head of a universal file.
constexpr std::uint32_t kUniversalMagic = 0xCAFEBABE;
constexpr std::uint32_t kMagic = 0xFEEDFACF;
constexpr std::uint32_t kProcessor = 0x01000007;

// Load commands.
constexpr std::uint32_t kSymbolTable = 0x2;
constexpr std::uint32_t kSegment = 0x19;
constexpr std::uint32_t kDyldInfo = 0x80000022;
constexpr std::uint32_t kMain = 0x80000028;
constexpr std::uint32_t kChainedFixups = 0x80000034;

// Types of sections.
constexpr std::uint32_t kInitialisers = 0x9;
constexpr std::uint32_t kThreadLocalValues = 0x11;
constexpr std::uint32_t kThreadLocalZeros = 0x12;
constexpr std::uint32_t kThreadLocalVariables = 0x13;
constexpr std::uint32_t kInitialiserOffsets = 0x16;

struct Segment {
  std::uint32_t command, commandSize;
  char name[16];
  std::uint64_t address, size, offset, fileSize;
  std::int32_t maximumProtection, protection;  // with the numbers of PROT_READ and its like
  std::uint32_t sections, flags;
};

struct Section {
  char name[16], segment[16];
  std::uint64_t address, size;
  std::uint32_t offset, alignment, relocations, relocationCount, flags, reserved[3];

  std::uint32_t type() const { return flags & 0xFF; }
};

template <typename T>
T Read(const std::byte* at) {
  T value;
  std::memcpy(&value, at, sizeof(value));
  return value;
}

std::uint32_t ReadBigEndian(const std::byte* at) { return ntohl(Read<std::uint32_t>(at)); }

const char* TextAt(const std::byte* at) { return reinterpret_cast<const char*>(at); }

// Seven bits a byte, the lowest first; the eighth bit says that there is more. A signed number goes
// on with its highest bit.
std::uint64_t ReadVariable(const std::byte*& at, bool isSigned = false) {
  std::uint64_t value = 0;
  for (unsigned shift = 0;;) {
    const auto byte = std::to_integer<std::uint64_t>(*at++);
    value |= (byte & 0x7F) << shift;
    shift += 7;
    if ((byte & 0x80) == 0) {
      const bool negative = isSigned && (byte & 0x40) != 0 && shift < 64;
      return negative ? value | ~std::uint64_t{0} << shift : value;
    }
  }
}

// Addresses are reckoned with as numbers; here one becomes a pointer.
template <typename T>
T* PointerTo(std::uintptr_t address) {
  return reinterpret_cast<T*>(address);  // NOLINT(performance-no-int-to-ptr): that is what it does
}

// --- A program or library in memory -------------------------------------------------------------

class Image;
std::vector<Image*> g_images;  // complete before main

// What a thread-local variable's accessor is called with. The first word is the accessor.
struct ThreadLocalVariable {
  const void* accessor;
  const Image* image;
  std::uint64_t offset;
};

// Stays to the end of the process: threads may run in it. Its functions throw std::runtime_error.
class Image {
 public:
  // Maps the file's part for x86-64, wherever there is room.
  explicit Image(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    contents_.assign(std::istreambuf_iterator<char>(file), {});
    contents_.resize(std::max<std::size_t>(contents_.size(), 4096));  // heads can be read
    file_ = reinterpret_cast<const std::byte*>(contents_.data());
    if (ReadBigEndian(file_) == kUniversalMagic) {
      // A table of processor, its kind, offset, size and alignment.
      const std::byte* part = file_ + 8;
      for (; ReadBigEndian(part) != kProcessor && ReadBigEndian(part) != 0; part += 20) {
      }
      file_ += ReadBigEndian(part + 8);
    }
    if (Read<std::uint32_t>(file_) != kMagic || Read<std::uint32_t>(file_ + 4) != kProcessor) {
      throw std::runtime_error(path + ": no Mach-O file for x86-64");
    }
    const std::byte* command = file_ + 32;
    for (auto left = Read<std::uint32_t>(file_ + 16); left > 0; --left) {
      commands_.emplace(Read<std::uint32_t>(command), command);
      command += Read<std::uint32_t>(command + 4);
    }
    Map();
    ReadSymbols();
    g_images.push_back(this);
  }

  Image(const Image&) = delete;
  Image& operator=(const Image&) = delete;

  // Fills in every address; those of functions may wait for the first call. Segments that are
  // read-only are so from here on.
  void Bind() {
    Run(Kind::kRebases, TableOf(kDyldInfo, 8));
    Run(Kind::kBinds, TableOf(kDyldInfo, 16));
    FollowChains(TableOf(kChainedFixups, 8).data());
    PrepareThreadLocals();
    for (const Segment& segment : segments_) {
      if (segment.protection != 0 &&
          mprotect(InMemory(segment.address), segment.size, segment.protection) != 0) {
        throw std::runtime_error("a segment cannot be protected");
      }
    }
  }

  // The constructors of its global objects.
  void Initialise() const {
    char* apple[] = {nullptr};  // a list of the system's own
    for (const Section& section : sections_) {
      const bool offsets = section.type() == kInitialiserOffsets;
      if (!offsets && section.type() != kInitialisers) {
        continue;
      }
      const std::byte* const begin = InMemory(section.address);
      for (std::size_t at = 0; at < section.size; at += offsets ? 4 : 8) {
        const std::uintptr_t function =
            offsets ? base_ + Read<std::uint32_t>(begin + at) : Read<std::uintptr_t>(begin + at);
        PointerTo<MainFunction>(function)(g_argumentCount, g_arguments, environ, apple);
      }
    }
  }

  // What LC_MAIN names.
  using MainFunction = int(int, char**, char**, char**);
  MainFunction* Main() const {
    const std::byte* const command = Command(kMain);
    if (command == nullptr) {
      throw std::runtime_error("no program");
    }
    return PointerTo<MainFunction>(base_ + Read<std::uint64_t>(command + 8));
  }

  // What it defines for others.
  const Imports& exports() const { return exports_; }

  // The image that `address` lies in, or null.
  static Image* At(const void* address) {
    const auto found = std::find_if(g_images.begin(), g_images.end(), [&](const Image* image) {
      return reinterpret_cast<std::uintptr_t>(address) - image->base_ < image->size_;
    });
    return found == g_images.end() ? nullptr : *found;
  }

  // Of its header.
  std::uintptr_t base() const { return base_; }

  // What lies in memory of a section; nothing if there is no such section.
  std::span<const std::byte> Contents(std::string_view name) const {
    for (const Section& section : sections_) {
      if (name == std::string_view(section.name, strnlen(section.name, sizeof(section.name)))) {
        return {InMemory(section.address), section.size};
      }
    }
    return {};
  }

  // At a function's first call, with where its name stands in the table of lazy binds.
  const void* BindAtFirstCall(std::uint64_t lazyOffset) const {
    return Run(Kind::kOneBind, TableOf(kDyldInfo, 32).subspan(lazyOffset));
  }

  // This thread's copy of the thread-local variables.
  std::byte* ThreadLocals() const {
    auto* block = static_cast<std::byte*>(pthread_getspecific(threadKey_));
    if (block == nullptr) {
      const std::size_t size = threadLocals_.size();
      block = static_cast<std::byte*>(std::aligned_alloc(64, (size + 63) & ~std::size_t{63}));
      std::memcpy(block, threadLocals_.data(), size);
      pthread_setspecific(threadKey_, block);
    }
    return block;
  }

 private:
  // The load command of that kind, or null.
  const std::byte* Command(std::uint32_t kind) const {
    const auto found = commands_.find(kind);
    return found == commands_.end() ? nullptr : found->second;
  }

  // The part of the file whose offset and size stand `at` bytes in the command; empty without it.
  std::span<const std::byte> TableOf(std::uint32_t kind, std::size_t at) const {
    const std::byte* const command = Command(kind);
    if (command == nullptr) {
      return {};
    }
    return {file_ + Read<std::uint32_t>(command + at), Read<std::uint32_t>(command + at + 4)};
  }

  std::byte* InMemory(std::uint64_t linkedAddress) const {
    return PointerTo<std::byte>(linkedAddress + slide_);
  }

  // All of it in one piece, but for the empty first 4 GB of a program.
  void Map() {
    std::uint64_t lowest = std::numeric_limits<std::uint64_t>::max(), highest = 0;
    for (auto [at, end] = commands_.equal_range(kSegment); at != end; ++at) {
      const auto segment = Read<Segment>(at->second);
      segments_.push_back(segment);
      if (segment.protection != 0) {
        lowest = std::min(lowest, segment.address);
        highest = std::max(highest, segment.address + segment.size);
      }
      for (std::uint32_t i = 0; i < segment.sections; ++i) {
        sections_.push_back(Read<Section>(at->second + sizeof(Segment) + i * sizeof(Section)));
      }
    }
    size_ = highest - lowest;
    void* const room =
        mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (room == MAP_FAILED) {
      throw std::runtime_error("no room in memory");
    }
    base_ = reinterpret_cast<std::uintptr_t>(room);
    slide_ = base_ - lowest;
    for (const Segment& segment : segments_) {
      std::memcpy(InMemory(segment.address), file_ + segment.offset, segment.fileSize);
    }
  }

  void ReadSymbols() {
    // Sixteen bytes each: name, kind, section, description, address. The table's size is a count.
    const auto symbols = TableOf(kSymbolTable, 8), names = TableOf(kSymbolTable, 16);
    for (std::size_t i = 0; i < symbols.size(); ++i) {
      const std::byte* const symbol = symbols.data() + i * 16;
      const auto kind = Read<std::uint8_t>(symbol + 4);
      const bool external = (kind & 0x01) != 0, inSection = (kind & 0xEE) == 0x0E;
      if (external && inSection) {
        exports_[TextAt(names.data() + Read<std::uint32_t>(symbol))] =
            InMemory(Read<std::uint64_t>(symbol + 8));
      }
    }
  }

  // A table is a little program: the upper four bits of each byte are what to do, the lower four a
  // number. Both kinds of table move a place along and fill it in; a bind's name is kept between.
  // kOneBind ends with the first bind, whose address is returned.
  enum class Kind { kRebases, kBinds, kOneBind };
  const void* Run(Kind kind, std::span<const std::byte> table) const {
    constexpr unsigned kRebase = 0x100;
    std::uintptr_t place = 0;
    std::uint64_t addend = 0;
    const void* bound = nullptr;
    for (const std::byte *at = table.data(), *const end = at + table.size(); at < end;) {
      const auto byte = std::to_integer<unsigned>(*at++);
      const unsigned number = byte & 0x0F;
      std::uint64_t times = 0, skip = 0;
      switch ((byte & 0xF0) | (kind == Kind::kRebases ? kRebase : 0)) {
        case kRebase | 0x00:  // done; in the table of lazy binds, with one name
        case 0x00:
        case kRebase | 0x10:  // the kind: always a pointer
        case 0x50:
        case 0x10:  // the library, by its number: names are enough here
        case 0x30:
          break;
        case 0x20:
          ReadVariable(at);
          break;
        case 0x40:
          bound = Find(TextAt(at), (number & 1) != 0);
          at += std::strlen(TextAt(at)) + 1;
          break;
        case 0x60:
          addend = ReadVariable(at, true);
          break;
        case kRebase | 0x20:
        case 0x70:
          place = segments_.at(number).address + slide_ + ReadVariable(at);
          break;
        case kRebase | 0x30:
        case 0x80:
          place += ReadVariable(at);
          break;
        case kRebase | 0x40:
          place += number * sizeof(void*);
          break;
        case kRebase | 0x50:
          times = number;
          break;
        case kRebase | 0x60:
          times = ReadVariable(at);
          break;
        case 0x90:
          times = 1;
          break;
        case kRebase | 0x70:
        case 0xA0:
          times = 1;
          skip = ReadVariable(at);
          break;
        case 0xB0:
          times = 1;
          skip = number * sizeof(void*);
          break;
        case kRebase | 0x80:
        case 0xC0:
          times = ReadVariable(at);
          skip = ReadVariable(at);
          break;
        default:
          throw std::runtime_error("an unknown kind of rebase or bind");
      }
      for (; times > 0; --times, place += sizeof(void*) + skip) {
        auto& pointer = *PointerTo<std::uintptr_t>(place);
        pointer = kind == Kind::kRebases ? pointer + slide_
                                         : reinterpret_cast<std::uintptr_t>(bound) + addend;
        if (kind == Kind::kOneBind) {
          return bound;
        }
      }
    }
    return nullptr;
  }

  // What newer linkers write in place of those tables: each pointer says how many steps of four
  // bytes it is to the next one of its page.
  void FollowChains(const std::byte* begin) const {
    if (begin == nullptr) {
      return;
    }
    struct Header {
      std::uint32_t version, starts, imports, names, importCount, importKind, nameKind;
    };
    const auto header = Read<Header>(begin);
    if (header.importKind != 1 || header.nameKind != 0) {
      throw std::runtime_error("an unknown kind of import table");
    }
    std::vector<std::uintptr_t> imports;
    for (std::uint32_t i = 0; i < header.importCount; ++i) {
      const auto import = Read<std::uint32_t>(begin + header.imports + i * 4);
      const char* const name = TextAt(begin + header.names + (import >> 9));
      // What any image may define, as operator new, is the program's own if it defines it.
      const auto own = (import & 0xFF) == 0xFD ? exports_.find(name) : exports_.end();
      imports.push_back(reinterpret_cast<std::uintptr_t>(
          own != exports_.end() ? own->second : Find(name, (import & 0x100) != 0)));
    }

    const std::byte* const starts = begin + header.starts;
    for (std::uint32_t i = 0; i < Read<std::uint32_t>(starts); ++i) {
      const auto offset = Read<std::uint32_t>(starts + 4 + i * 4);
      if (offset == 0) {
        continue;  // no pointer in this segment
      }
      const std::byte* const segment = starts + offset;
      const auto pageSize = Read<std::uint16_t>(segment + 4);
      const auto kind =
          Read<std::uint16_t>(segment + 6);  // 2: linked addresses, 6: from the header
      if (kind != 2 && kind != 6) {
        throw std::runtime_error("an unknown kind of pointer");
      }
      for (std::uint16_t page = 0; page < Read<std::uint16_t>(segment + 20); ++page) {
        const auto first = Read<std::uint16_t>(segment + 22 + page * 2);
        if (first == 0xFFFF) {
          continue;  // no pointer on this page
        }
        std::byte* place = InMemory(segments_.at(i).address) + page * pageSize + first;
        for (std::uint64_t next = 1; next != 0; place += next * 4) {
          auto& pointer = *reinterpret_cast<std::uint64_t*>(place);
          const std::uint64_t value = pointer;
          next = value >> 51 & 0xFFF;
          if (value >> 63 != 0) {
            pointer = imports.at(value & 0xFFFFFF) + (value >> 24 & 0xFF);
          } else {
            pointer = (value & 0xFFFFFFFFF) + (kind == 2 ? slide_ : base_);
            pointer |= (value >> 36 & 0xFF) << 56;
          }
        }
      }
    }
  }

  void PrepareThreadLocals() {
    for (const Section& section : sections_) {
      std::byte* const begin = InMemory(section.address);
      if (section.type() == kThreadLocalVariables) {
        auto* const variables = reinterpret_cast<ThreadLocalVariable*>(begin);
        for (std::size_t i = 0; i < section.size / sizeof(ThreadLocalVariable); ++i) {
          variables[i].image = this;
        }
      } else if (section.type() == kThreadLocalValues || section.type() == kThreadLocalZeros) {
        // They lie side by side.
        const std::byte* const first = threadLocals_.empty() ? begin : threadLocals_.data();
        threadLocals_ = {first, begin + section.size};
      }
    }
    if (pthread_key_create(&threadKey_, std::free) != 0) {
      throw std::runtime_error("no key for its thread-local variables");
    }
  }

  std::vector<char> contents_;                               // of the whole file
  const std::byte* file_ = nullptr;                          // the part for x86-64
  std::multimap<std::uint32_t, const std::byte*> commands_;  // by their kinds
  std::vector<Segment> segments_;
  std::vector<Section> sections_;
  Imports exports_;
  std::uintptr_t base_ = 0;
  std::size_t size_ = 0;
  std::uintptr_t slide_ = 0;                 // memory address less linked address
  std::span<const std::byte> threadLocals_;  // their initial values, zeros included
  pthread_key_t threadKey_ = 0;
};

}  // namespace

void EndUnwritten(const char* what) {
  dprintf(STDERR_FILENO, "run_macos_program: %s is asked for, and nobody has written it\n", what);
  _exit(kExitUnwritten);
}

// --- What compiled code calls by itself ---------------------------------------------------------

// Both are called in the middle of a function of the program's that expects every register to be
// as it was, but the one with the result. FXSAVE keeps the vector registers; nothing here was
// compiled for wider ones.
asm(R"(
.macro CALL_KEEPING_REGISTERS function  # its result in r11, which is not kept
  pushq %rbp; movq %rsp, %rbp
  pushq %rax; pushq %rcx; pushq %rdx; pushq %rsi; pushq %rdi; pushq %r8; pushq %r9; pushq %r10
  subq $512, %rsp; andq $-16, %rsp; fxsave64 (%rsp)
  call \function
  movq %rax, %r11
  fxrstor64 (%rsp); leaq -64(%rbp), %rsp
  popq %r10; popq %r9; popq %r8; popq %rdi; popq %rsi; popq %rdx; popq %rcx; popq %rax
  popq %rbp
.endm

.text
.globl ThreadLocalAccessor  # rdi: the variable. rax: its address
ThreadLocalAccessor:
  pushq %r11
  CALL_KEEPING_REGISTERS AddressOfThreadLocal
  movq %r11, %rax
  popq %r11
  ret

.globl BindingStub  # on the stack: an address in the image, the place in its table of lazy binds
BindingStub:
  pushq %rdi; pushq %rsi
  movq 16(%rsp), %rdi; movq 24(%rsp), %rsi
  CALL_KEEPING_REGISTERS AddressAtFirstCall
  popq %rsi; popq %rdi
  addq $16, %rsp
  jmpq *%r11
)");

extern "C" {

void ThreadLocalAccessor();
void BindingStub();

__attribute__((used)) const std::byte* AddressOfThreadLocal(const ThreadLocalVariable* variable) {
  return variable->image->ThreadLocals() + variable->offset;
}

__attribute__((used)) const void* AddressAtFirstCall(const void* address,
                                                     std::uint64_t lazyOffset) {
  return Image::At(address)->BindAtFirstCall(lazyOffset);
}

}  // extern "C"

namespace {

// --- The loader, as programs see it -------------------------------------------------------------

// RTLD_NEXT, RTLD_DEFAULT: both mean the system here. Names come without their underscore.
const void* DlSym(void* /*library*/, const char* name) {
  return Find("_" + std::string(name), true);
}

void* DlOpen(const char* /*path*/, int /*mode*/) { return nullptr; }

int* ArgumentCount() { return &g_argumentCount; }
char*** Arguments() { return &g_arguments; }

// Where the unwinder of exceptions finds the tables of the functions around `address`.
struct UnwindSections {
  std::uintptr_t header;
  const std::byte* dwarf;
  std::size_t dwarfSize;
  const std::byte* compact;
  std::size_t compactSize;
};

bool FindUnwindSections(const void* address, UnwindSections* sections) {
  const Image* const image = Image::At(address);
  if (image != nullptr) {
    const auto dwarf = image->Contents("__eh_frame"), compact = image->Contents("__unwind_info");
    *sections = {image->base(), dwarf.data(), dwarf.size(), compact.data(), compact.size()};
  }
  return image != nullptr;
}

Image& Load(const std::string& path) {
  auto* const image = new Image(path);
  image->Bind();
  image->Initialise();
  return *image;
}

}  // namespace

int main(int argc, char** argv) try {
  std::vector<std::string> libraries, without;
  for (; argc > 2 && std::string_view(argv[1]).starts_with("--"); argc -= 2, argv += 2) {
    const std::string_view option = argv[1];
    if (option != "--library" && option != "--without") {
      throw std::runtime_error("no such option: " + std::string(option));
    }
    (option == "--library" ? libraries : without).emplace_back(argv[2]);
  }
  if (argc < 2) {
    throw std::runtime_error("which program?");
  }
  g_argumentCount = argc - 1;
  g_arguments = argv + 1;

  AddSystemCalls(g_imports);
  AddLibrary(g_imports);
  Add(g_imports, "dyld_stub_binder", BindingStub, "__tlv_bootstrap", ThreadLocalAccessor,
      "__NSGetArgc", ArgumentCount, "__NSGetArgv", Arguments, "_dlopen", DlOpen, "_dlsym", DlSym,
      "__dyld_find_unwind_sections", FindUnwindSections);
  for (const std::string& path : libraries) {
    for (const auto& [name, what] : Load(path).exports()) {
      g_imports.insert_or_assign(name, what);
    }
  }
  for (const std::string& name : without) {
    g_imports.erase(name);
  }
  char* apple[] = {nullptr};
  const auto& program = Load(argv[1]);
  std::exit(program.Main()(g_argumentCount, g_arguments, environ, apple));
} catch (const std::exception& problem) {
  std::fprintf(stderr, "run_macos_program: %s\n", problem.what());
  return kExitUnwritten;
}
