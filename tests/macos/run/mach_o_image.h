// A program or library for macOS x86-64 in the memory of this Linux process.
//
// What the system's own loader does there: segments, rebases, binds, thread-local variables and
// initialisers. Both tables that linkers write are read, LC_DYLD_INFO and LC_DYLD_CHAINED_FIXUPS.
#ifndef TESTS_MACOS_RUN_MACH_O_IMAGE_H_
#define TESTS_MACOS_RUN_MACH_O_IMAGE_H_

#include <pthread.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

// Where a section lies in memory; zero if there is none.
struct Section {
  std::uintptr_t address = 0;
  std::size_t size = 0;
};

class MachOImage {
 public:
  // The address for the name of an import, underscore included. `weak`: null is an answer.
  using Lookup = std::function<const void*(const std::string& name, bool weak)>;

  // Maps the file's x86-64 part, wherever there is room. Throws std::runtime_error.
  explicit MachOImage(const std::string& path);

  // Images stay to the end of the process: threads may run in them.
  MachOImage(const MachOImage&) = delete;
  MachOImage& operator=(const MachOImage&) = delete;

  // Fills in every address. Imports of functions may wait for their first call; `lookup` is kept
  // for them. Segments that are read-only are so from here on. Throws std::runtime_error.
  void Bind(const Lookup& lookup);

  // The constructors of its global objects.
  void Initialise(int argc, char** argv, char** environment) const;

  // What LC_MAIN names; null in a library. The fourth argument is a list of the system's own.
  using MainFunction = int(int, char**, char**, char**);
  MainFunction* Main() const;

  // The address of what it defines by that name for others; null if it does not.
  const void* Export(const std::string& name) const;

  // The image that `address` lies in, or null.
  static MachOImage* At(const void* address);

  std::uintptr_t base() const { return base_; }  // of its header
  Section section(const std::string& name) const;

  // At a function's first call, with where its name stands in the table of lazy binds.
  const void* BindAtFirstCall(std::uint64_t lazyOffset);

  // This thread's copy of the image's thread-local variables.
  std::byte* ThreadLocals() const;

 private:
  struct Segment {
    std::uintptr_t address;
    std::size_t size;
    int protection;  // 0: not in memory
  };
  struct Table {  // a part of the file, by its place in contents_
    std::uint32_t offset = 0;
    std::uint32_t size = 0;
  };

  void ReadCommands();
  void MapSegment(const std::byte* command);
  void ReadSymbols(Table symbols, Table names);
  // Runs a table from `at` on; kOneBind to its first bind, whose address it returns.
  enum class Kind { kRebases, kBinds, kOneBind };
  const void* Run(Kind kind, const std::byte* at, const std::byte* end) const;
  void FollowChains(Table table) const;
  void PrepareThreadLocals();
  std::byte* InMemory(std::uint64_t linkedAddress) const;

  std::string path_;
  std::vector<std::byte> contents_;  // of the x86-64 part
  std::uintptr_t base_ = 0;
  std::size_t size_ = 0;
  std::uintptr_t slide_ = 0;  // memory address less linked address
  std::vector<Segment> segments_;
  std::vector<std::pair<std::uint32_t, Section>> sections_;  // by the section's type
  std::map<std::string, Section> sectionsByName_;
  std::map<std::string, const void*> exports_;
  Table rebases_, binds_, lazyBinds_, chains_;
  std::uint64_t entry_ = 0;
  Lookup lookup_;
  Section threadLocals_;  // their initial values, zeros included
  pthread_key_t threadKey_ = 0;
};

#endif  // TESTS_MACOS_RUN_MACH_O_IMAGE_H_
