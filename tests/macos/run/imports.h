// What a program imports from libSystem, as functions for this Linux process with macOS's rules.
//
// The processor's calling convention is the same on both systems, variadic calls and va_list too. So
// a function that differs in nothing else is bound to the C library's own; of the others there is
// one of ours, which takes macOS's records and numbers and returns them.
#ifndef TESTS_MACOS_RUN_IMPORTS_H_
#define TESTS_MACOS_RUN_IMPORTS_H_

#include <signal.h>

#include <cstdint>
#include <map>
#include <string>

// By the name in the program's import table, underscore included.
using Imports = std::map<std::string, const void*>;

// Names and what they stand for, in turn.
inline void Add(Imports& /*imports*/) {}
template <typename T, typename... Rest>
void Add(Imports& imports, const char* name, T* what, Rest... rest) {
  imports.emplace(name, reinterpret_cast<const void*>(what));
  Add(imports, rest...);
}

// Ends the run: a program asks for something that nobody has written.
[[noreturn]] void EndUnwritten(const char* what);

// Files, sockets, signals and processes.
void AddSystemCalls(Imports& imports);

// Streams, characters, locales, threads, and what is the same on both systems.
void AddLibrary(Imports& imports);

// Numbers of one system in those of the other. What the other does not have stays as it is.
int MacError(int linuxError);
int LinuxError(int macError);
int MacSignal(int linuxSignal);
int LinuxSignal(int macSignal);
using MacSignalSet = std::uint32_t;  // signal 1 is bit 0
sigset_t LinuxSignals(MacSignalSet set);
MacSignalSet MacSignals(const sigset_t& set);
int MacWaitStatus(int status);

#endif  // TESTS_MACOS_RUN_IMPORTS_H_
