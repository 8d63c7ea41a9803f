// Runs a program for macOS x86-64 on Linux, for tests.
//   run_macos_program [--library FILE]... [--without IMPORT]... PROGRAM [ARGUMENT]...
//
//   --library FILE     what FILE exports is there for the program, before what this program has
//   --without IMPORT   that one is missing, as on a macOS which does not have it yet
//
// An import that nobody has written ends the run with its name when it is called.
#include <dlfcn.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "tests/macos/run/imports.h"
#include "tests/macos/run/mach_o_image.h"

extern "C" {
// In mach_o_image.cpp, reached with a calling convention of their own.
void ThreadLocalAccessor();
void BindingStub();
}

namespace {

constexpr int kExitUnwritten = 125;

}  // namespace

void EndUnwritten(const char* what) {
  dprintf(STDERR_FILENO, "run_macos_program: %s is asked for, and nobody has written it\n", what);
  _exit(kExitUnwritten);
}

namespace {

Imports g_imports;
std::set<std::string> g_without;
std::vector<MachOImage*> g_libraries;

// A function that ends the run with `name`.
const void* Missing(const std::string& name) {
  constexpr std::size_t kPage = 4096;
  void* const page =
      mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    throw std::runtime_error("no room for a missing import");
  }
  // movabs $name, %rdi; movabs $EndUnwritten, %rax; jmp *%rax
  auto* const code = static_cast<unsigned char*>(page);
  const char* const kept = strdup(name.c_str());
  void (*const end)(const char*) = EndUnwritten;
  std::memcpy(code, "\x48\xBF", 2);
  std::memcpy(code + 2, &kept, 8);
  std::memcpy(code + 10, "\x48\xB8", 2);
  std::memcpy(code + 12, &end, 8);
  std::memcpy(code + 20, "\xFF\xE0", 2);
  mprotect(page, kPage, PROT_READ | PROT_EXEC);
  return page;
}

const void* Find(const std::string& name) {
  for (const MachOImage* library : g_libraries) {
    if (const void* const address = library->Export(name)) {
      return address;
    }
  }
  const auto found = g_imports.find(name);
  return found == g_imports.end() || g_without.contains(name) ? nullptr : found->second;
}

const void* FindOrMissing(const std::string& name, bool weak) {
  const void* const address = Find(name);
  return address == nullptr && !weak ? Missing(name) : address;
}

// --- The loader, as programs see it -------------------------------------------------------------

// RTLD_NEXT, RTLD_DEFAULT: both mean the system here. Names come without their underscore.
const void* DlSym(void* /*library*/, const char* name) { return Find("_" + std::string(name)); }

void* DlOpen(const char* /*path*/, int /*mode*/) { return nullptr; }

int g_argumentCount = 0;
char** g_arguments = nullptr;

int* ArgumentCount() { return &g_argumentCount; }
char*** Arguments() { return &g_arguments; }

struct UnwindSections {
  std::uintptr_t header;
  Section dwarf, compact;
};

bool FindUnwindSections(const void* address, UnwindSections* sections) {
  const MachOImage* const image = MachOImage::At(address);
  if (image == nullptr) {
    return false;
  }
  *sections = {image->base(), image->section("__eh_frame"), image->section("__unwind_info")};
  return true;
}

// Nothing is ever unloaded.
void RegisterForRemoval(const void* /*function*/) {}

void AddLoader(Imports& imports) {
  Add(imports, "dyld_stub_binder", BindingStub, "__tlv_bootstrap", ThreadLocalAccessor,
      "__NSGetArgc", ArgumentCount, "__NSGetArgv", Arguments, "_dlsym", DlSym, "_dlopen", DlOpen,
      "__dyld_find_unwind_sections", FindUnwindSections, "__dyld_register_func_for_remove_image",
      RegisterForRemoval);
}

}  // namespace

int main(int argc, char** argv) try {
  int at = 1;
  std::vector<std::string> libraries;
  for (; at + 1 < argc && std::string_view(argv[at]).substr(0, 2) == "--"; at += 2) {
    const std::string_view option = argv[at];
    if (option == "--library") {
      libraries.emplace_back(argv[at + 1]);
    } else if (option == "--without") {
      g_without.insert(argv[at + 1]);
    } else {
      throw std::runtime_error("no such option: " + std::string(option));
    }
  }
  if (at >= argc) {
    throw std::runtime_error("which program?");
  }

  g_argumentCount = argc - at;
  g_arguments = argv + at;
  AddSystemCalls(g_imports);
  AddLibrary(g_imports);
  AddLoader(g_imports);
  for (const std::string& path : libraries) {
    auto* const library = new MachOImage(path);
    library->Bind(FindOrMissing);
    library->Initialise(g_argumentCount, g_arguments, environ);
    g_libraries.push_back(library);
  }
  auto* const program = new MachOImage(argv[at]);
  program->Bind(FindOrMissing);
  if (program->Main() == nullptr) {
    throw std::runtime_error(std::string(argv[at]) + ": no program");
  }
  program->Initialise(g_argumentCount, g_arguments, environ);
  char* apple[] = {nullptr};
  std::exit(program->Main()(g_argumentCount, g_arguments, environ, apple));
} catch (const std::exception& problem) {
  std::fprintf(stderr, "run_macos_program: %s\n", problem.what());
  return kExitUnwritten;
}
