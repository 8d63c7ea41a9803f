#include "tests/macos/run/mach_o_image.h"

#include <arpa/inet.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace {

// Numbers of the file format. Everything is little-endian but the header of a universal file.
constexpr std::uint32_t kUniversalMagic = 0xCAFEBABE;
constexpr std::uint32_t kMagic = 0xFEEDFACF;
constexpr std::uint32_t kProcessor = 0x01000007;
constexpr std::uint32_t kSymbolTable = 0x2;
constexpr std::uint32_t kLoadLibrary = 0xC;
constexpr std::uint32_t kSegment = 0x19;
constexpr std::uint32_t kDyldInfo = 0x22;
constexpr std::uint32_t kDyldInfoOnly = 0x80000022;
constexpr std::uint32_t kMain = 0x80000028;
constexpr std::uint32_t kChainedFixups = 0x80000034;
constexpr std::uint32_t kInitialisers = 0x9;
constexpr std::uint32_t kThreadLocalValues = 0x11;
constexpr std::uint32_t kThreadLocalZeros = 0x12;
constexpr std::uint32_t kThreadLocalVariables = 0x13;
constexpr std::uint32_t kInitialiserOffsets = 0x16;

constexpr std::uintptr_t kPage = 4096;

struct SegmentCommand {
  std::uint32_t command, commandSize;
  char name[16];
  std::uint64_t address, size, offset, fileSize;
  std::int32_t maximumProtection, protection;
  std::uint32_t sections, flags;
};

struct SectionRecord {
  char name[16], segment[16];
  std::uint64_t address, size;
  std::uint32_t offset, alignment, relocations, relocationCount, flags, reserved[3];
};

// What a variable's accessor is called with. The first word is the accessor.
struct ThreadLocalVariable {
  const void* accessor;
  const MachOImage* image;
  std::uint64_t offset;
};

template <typename T>
T Read(const std::byte* at) {
  T value;
  std::memcpy(&value, at, sizeof(value));
  return value;
}

// Seven bits a byte, the lowest first; the eighth bit says that there is more.
std::uint64_t ReadVariable(const std::byte*& at) {
  std::uint64_t value = 0;
  for (unsigned shift = 0;; shift += 7) {
    const auto byte = std::to_integer<std::uint64_t>(*at++);
    value |= (byte & 0x7F) << shift;
    if ((byte & 0x80) == 0) {
      return value;
    }
  }
}

std::uint64_t ReadSigned(const std::byte*& at) {
  const std::byte* const begin = at;
  const std::uint64_t value = ReadVariable(at);
  const auto bits = static_cast<unsigned>(7 * (at - begin));
  const bool negative = (std::to_integer<unsigned>(at[-1]) & 0x40) != 0;
  return negative && bits < 64 ? value | ~std::uint64_t{0} << bits : value;
}

// Addresses are reckoned with as numbers; here one becomes a pointer.
template <typename T>
T* PointerTo(std::uintptr_t address) {
  return reinterpret_cast<T*>(address);  // NOLINT(performance-no-int-to-ptr): that is what it does
}

std::string FixedText(const char (&text)[16]) { return {text, strnlen(text, sizeof(text))}; }

// Images by address, for the thunks below and for the unwinder. Written before the program runs.
std::vector<MachOImage*> g_images;

}  // namespace

MachOImage::MachOImage(const std::string& path) : path_(path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<char> all{std::istreambuf_iterator<char>(file), {}};
  const auto* const bytes = reinterpret_cast<const std::byte*>(all.data());
  std::size_t offset = 0, size = all.size();
  if (size >= 8 && ntohl(Read<std::uint32_t>(bytes)) == kUniversalMagic) {
    // A table of processor, kind, offset, size and alignment.
    for (std::uint32_t i = 0; i < ntohl(Read<std::uint32_t>(bytes + 4)); ++i) {
      const std::byte* const part = bytes + 8 + i * 20;
      if (ntohl(Read<std::uint32_t>(part)) == kProcessor) {
        offset = ntohl(Read<std::uint32_t>(part + 8));
        size = ntohl(Read<std::uint32_t>(part + 12));
      }
    }
  }
  contents_.assign(bytes + offset, bytes + offset + size);
  if (size < 32 || Read<std::uint32_t>(contents_.data()) != kMagic ||
      Read<std::uint32_t>(contents_.data() + 4) != kProcessor) {
    throw std::runtime_error(path + ": no Mach-O file for x86-64");
  }
  ReadCommands();
  g_images.push_back(this);
}

void MachOImage::ReadCommands() {
  std::vector<const std::byte*> segments;
  Table symbols, names;
  const std::byte* at = contents_.data() + 32;
  for (std::uint32_t left = Read<std::uint32_t>(contents_.data() + 16); left > 0; --left) {
    switch (Read<std::uint32_t>(at)) {
      case kSegment:
        segments.push_back(at);
        break;
      case kDyldInfo:
      case kDyldInfoOnly:  // rebases, binds, weak binds (of one image: done already), lazy ones
        rebases_ = Read<Table>(at + 8);
        binds_ = Read<Table>(at + 16);
        lazyBinds_ = Read<Table>(at + 32);
        break;
      case kChainedFixups:
        chains_ = Read<Table>(at + 8);
        break;
      case kSymbolTable:
        symbols = Read<Table>(at + 8);
        names = Read<Table>(at + 16);
        break;
      case kMain:
        entry_ = Read<std::uint64_t>(at + 8);
        break;
      case kLoadLibrary: {
        const std::string_view library = reinterpret_cast<const char*>(at) + 24;
        if (library != "/usr/lib/libSystem.B.dylib") {
          throw std::runtime_error(path_ + ": asks for " + std::string(library));
        }
        break;
      }
      default:  // for the system's security and its debuggers
        break;
    }
    at += Read<std::uint32_t>(at + 4);
  }

  // All of it in one piece, but for the empty first 4 GB of a program.
  std::uint64_t lowest = std::numeric_limits<std::uint64_t>::max(), highest = 0;
  for (const std::byte* command : segments) {
    const auto segment = Read<SegmentCommand>(command);
    if (segment.protection != 0) {
      lowest = std::min(lowest, segment.address);
      highest = std::max(highest, segment.address + segment.size);
    }
  }
  size_ = highest - lowest;
  void* const room =
      mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (room == MAP_FAILED) {
    throw std::runtime_error(path_ + ": no room in memory");
  }
  base_ = reinterpret_cast<std::uintptr_t>(room);
  slide_ = base_ - lowest;
  for (const std::byte* command : segments) {
    MapSegment(command);
  }
  ReadSymbols(symbols, names);
}

void MachOImage::MapSegment(const std::byte* command) {
  const auto segment = Read<SegmentCommand>(command);
  segments_.push_back({segment.address + slide_, segment.size, segment.protection});
  if (segment.protection == 0) {
    return;
  }
  std::memcpy(InMemory(segment.address), contents_.data() + segment.offset, segment.fileSize);
  for (std::uint32_t i = 0; i < segment.sections; ++i) {
    const auto record =
        Read<SectionRecord>(command + sizeof(SegmentCommand) + i * sizeof(SectionRecord));
    const Section section = {record.address + slide_, record.size};
    sections_.emplace_back(record.flags & 0xFF, section);
    sectionsByName_[FixedText(record.name)] = section;
  }
}

void MachOImage::ReadSymbols(Table symbols, Table names) {
  // Sixteen bytes each: name, kind, section, description, address. `size` is their number here.
  for (std::uint32_t i = 0; i < symbols.size; ++i) {
    const std::byte* const symbol = contents_.data() + symbols.offset + i * 16;
    const auto kind = Read<std::uint8_t>(symbol + 4);
    const bool external = (kind & 0x01) != 0, inSection = (kind & 0xEE) == 0x0E;
    if (external && inSection) {
      const auto* const name = reinterpret_cast<const char*>(contents_.data()) + names.offset +
                               Read<std::uint32_t>(symbol);
      exports_[name] = InMemory(Read<std::uint64_t>(symbol + 8));
    }
  }
}

std::byte* MachOImage::InMemory(std::uint64_t linkedAddress) const {
  return PointerTo<std::byte>(linkedAddress + slide_);
}

void MachOImage::Bind(const Lookup& lookup) {
  lookup_ = lookup;
  const std::byte* const file = contents_.data();
  Run(Kind::kRebases, file + rebases_.offset, file + rebases_.offset + rebases_.size);
  Run(Kind::kBinds, file + binds_.offset, file + binds_.offset + binds_.size);
  if (chains_.size != 0) {
    FollowChains(chains_);
  }
  PrepareThreadLocals();
  for (const Segment& segment : segments_) {
    // PROT_READ, PROT_WRITE and PROT_EXEC have the same numbers on both systems.
    const std::size_t size = (segment.size + kPage - 1) & ~(kPage - 1);
    if (segment.protection != 0 &&
        mprotect(PointerTo<void>(segment.address), size, segment.protection) != 0) {
      throw std::runtime_error(path_ + ": a segment cannot be protected");
    }
  }
}

// A table is a little program: the upper four bits of each byte are what to do, the lower four a
// number. Both kinds of table move a place along and fill it in; a bind's names are kept between.
const void* MachOImage::Run(Kind kind, const std::byte* at, const std::byte* end) const {
  std::uintptr_t place = 0;
  std::uint64_t addend = 0;
  std::string name;
  bool weak = false;
  const auto fill = [&](std::uint64_t times, std::uint64_t skip) {
    const void* const bound = kind == Kind::kRebases ? nullptr : lookup_(name, weak);
    for (; times > 0; --times, place += sizeof(void*) + skip) {
      auto& pointer = *PointerTo<std::uintptr_t>(place);
      pointer = kind == Kind::kRebases ? pointer + slide_
                                       : reinterpret_cast<std::uintptr_t>(bound) + addend;
    }
    return bound;
  };
  while (at < end) {
    const auto byte = std::to_integer<unsigned>(*at++);
    const unsigned number = byte & 0x0F;
    std::uint64_t times = 0;
    switch ((byte & 0xF0) | (kind == Kind::kRebases ? 0 : 0x100)) {
      case 0x000:  // done; in the table of lazy binds, with one name
      case 0x100:
      case 0x010:  // the kind: always a pointer
      case 0x150:
      case 0x110:  // the library, by its number: there is one
      case 0x130:
        break;
      case 0x120:
        ReadVariable(at);
        break;
      case 0x140:
        weak = (number & 1) != 0;
        name = reinterpret_cast<const char*>(at);
        at += name.size() + 1;
        break;
      case 0x160:
        addend = ReadSigned(at);
        break;
      case 0x020:
      case 0x170:
        place = segments_.at(number).address + ReadVariable(at);
        break;
      case 0x030:
      case 0x180:
        place += ReadVariable(at);
        break;
      case 0x040:
        place += number * sizeof(void*);
        break;
      case 0x050:
        fill(number, 0);
        break;
      case 0x060:
        fill(ReadVariable(at), 0);
        break;
      case 0x190:
        if (const void* const bound = fill(1, 0); kind == Kind::kOneBind) {
          return bound;
        }
        break;
      case 0x070:
      case 0x1A0:
        fill(1, ReadVariable(at));
        break;
      case 0x1B0:
        fill(1, number * sizeof(void*));
        break;
      case 0x080:
      case 0x1C0:
        times = ReadVariable(at);
        fill(times, ReadVariable(at));
        break;
      default:
        throw std::runtime_error(path_ + ": an unknown kind of rebase or bind");
    }
  }
  return nullptr;
}

const void* MachOImage::BindAtFirstCall(std::uint64_t lazyOffset) {
  const std::byte* const table = contents_.data() + lazyBinds_.offset;
  return Run(Kind::kOneBind, table + lazyOffset, table + lazyBinds_.size);
}

// Each pointer says how many steps of four bytes it is to the next one of its page.
void MachOImage::FollowChains(Table table) const {
  struct Header {
    std::uint32_t version, starts, imports, names, importCount, importKind, nameKind;
  };
  const std::byte* const begin = contents_.data() + table.offset;
  const auto header = Read<Header>(begin);
  if (header.importKind != 1 || header.nameKind != 0) {
    throw std::runtime_error(path_ + ": an unknown kind of import table");
  }
  std::vector<const void*> imports;
  for (std::uint32_t i = 0; i < header.importCount; ++i) {
    const auto import = Read<std::uint32_t>(begin + header.imports + i * 4);
    const auto* const name = reinterpret_cast<const char*>(begin) + header.names + (import >> 9);
    // What any image may define, as operator new, is the program's own if it defines it.
    const void* const own = (import & 0xFF) == 0xFD ? Export(name) : nullptr;
    imports.push_back(own != nullptr ? own : lookup_(name, (import & 0x100) != 0));
  }

  const std::byte* const starts = begin + header.starts;
  for (std::uint32_t i = 0; i < Read<std::uint32_t>(starts); ++i) {
    const auto offset = Read<std::uint32_t>(starts + 4 + i * 4);
    if (offset == 0) {
      continue;
    }
    const std::byte* const segment = starts + offset;
    const auto pageSize = Read<std::uint16_t>(segment + 4);
    const auto kind = Read<std::uint16_t>(segment + 6);  // 2: linked addresses, 6: from the header
    if (kind != 2 && kind != 6) {
      throw std::runtime_error(path_ + ": an unknown kind of pointer");
    }
    for (std::uint16_t page = 0; page < Read<std::uint16_t>(segment + 20); ++page) {
      const auto first = Read<std::uint16_t>(segment + 22 + page * 2);
      if (first == 0xFFFF) {
        continue;  // no pointer on this page
      }
      std::uintptr_t place = segments_.at(i).address + std::uintptr_t{page} * pageSize + first;
      for (std::uint64_t next = 1; next != 0; place += next * 4) {
        auto* const pointer = PointerTo<std::uint64_t>(place);
        const std::uint64_t value = *pointer;
        next = value >> 51 & 0xFFF;
        if (value >> 63 != 0) {
          const std::uint64_t addend = value >> 24 & 0xFF;
          *pointer = reinterpret_cast<std::uintptr_t>(imports.at(value & 0xFFFFFF)) + addend;
        } else {
          const std::uint64_t target = value & 0xFFFFFFFFF;
          *pointer = (target + (kind == 2 ? slide_ : base_)) | (value >> 36 & 0xFF) << 56;
        }
      }
    }
  }
}

void MachOImage::PrepareThreadLocals() {
  for (const auto& [kind, section] : sections_) {
    if (kind == kThreadLocalVariables) {
      auto* const variables = PointerTo<ThreadLocalVariable>(section.address);
      for (std::size_t i = 0; i < section.size / sizeof(ThreadLocalVariable); ++i) {
        variables[i].image = this;
      }
    } else if (kind == kThreadLocalValues || kind == kThreadLocalZeros) {  // they lie side by side
      if (threadLocals_.size == 0) {
        threadLocals_.address = section.address;
      }
      threadLocals_.size = section.address + section.size - threadLocals_.address;
    }
  }
  if (threadLocals_.size != 0 && pthread_key_create(&threadKey_, std::free) != 0) {
    throw std::runtime_error(path_ + ": no key for its thread-local variables");
  }
}

std::byte* MachOImage::ThreadLocals() const {
  auto* block = static_cast<std::byte*>(pthread_getspecific(threadKey_));
  if (block == nullptr) {
    block = static_cast<std::byte*>(std::aligned_alloc(64, (threadLocals_.size + 63) & ~63UL));
    std::memcpy(block, PointerTo<const void>(threadLocals_.address), threadLocals_.size);
    pthread_setspecific(threadKey_, block);
  }
  return block;
}

void MachOImage::Initialise(int argc, char** argv, char** environment) const {
  char* apple[] = {nullptr};
  using Initialiser = void(int, char**, char**, char**);
  for (const auto& [kind, section] : sections_) {
    const std::size_t step = kind == kInitialisers ? 8 : 4;
    if (kind == kInitialisers || kind == kInitialiserOffsets) {
      for (std::size_t at = 0; at < section.size; at += step) {
        const auto* const entry = PointerTo<const std::byte>(section.address + at);
        const std::uintptr_t function = kind == kInitialisers ? Read<std::uintptr_t>(entry)
                                                              : base_ + Read<std::uint32_t>(entry);
        PointerTo<Initialiser>(function)(argc, argv, environment, apple);
      }
    }
  }
}

MachOImage::MainFunction* MachOImage::Main() const {
  return entry_ == 0 ? nullptr : PointerTo<MainFunction>(base_ + entry_);
}

const void* MachOImage::Export(const std::string& name) const {
  const auto found = exports_.find(name);
  return found == exports_.end() ? nullptr : found->second;
}

Section MachOImage::section(const std::string& name) const {
  const auto found = sectionsByName_.find(name);
  return found == sectionsByName_.end() ? Section{} : found->second;
}

MachOImage* MachOImage::At(const void* address) {
  const auto found = std::find_if(g_images.begin(), g_images.end(), [&](const MachOImage* image) {
    return reinterpret_cast<std::uintptr_t>(address) - image->base_ < image->size_;
  });
  return found == g_images.end() ? nullptr : *found;
}

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

__attribute__((used)) const std::byte* AddressOfThreadLocal(const ThreadLocalVariable* variable) {
  return variable->image->ThreadLocals() + variable->offset;
}

__attribute__((used)) const void* AddressAtFirstCall(const void* address,
                                                     std::uint64_t lazyOffset) {
  return MachOImage::At(address)->BindAtFirstCall(lazyOffset);
}

}  // extern "C"
