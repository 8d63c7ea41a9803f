// What a program imports from libSystem, as functions for this Linux process with macOS's rules.
//
// The calling convention is the same on both systems, variadic calls and va_list too. So a function
// that differs in nothing else is bound to the C library's own; of the others there is one of ours,
// which takes macOS's records and numbers and returns them.
#ifndef TESTS_MACOS_RUN_IMPORTS_H_
#define TESTS_MACOS_RUN_IMPORTS_H_

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

// Numbers of errors. One that the other system does not have stays as it is.
int MacError(int linuxError);
int LinuxError(int macError);

#endif  // TESTS_MACOS_RUN_IMPORTS_H_
