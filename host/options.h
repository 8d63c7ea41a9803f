// The command line.
#ifndef HOST_OPTIONS_H_
#define HOST_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct Options {
  std::vector<std::string> servers;            // --server, as given
  std::vector<std::string> maps;               // --map, NAME=ADDRESS as given
  std::vector<std::string> hostsFiles;         // --hosts
  std::string user;                            // --user; empty: nobody if started as root
  std::string trace;                           // --trace: a file, "-", or empty for none
  std::uint64_t traceSize = 10 * 1024 * 1024;  // --trace-size, bytes
  int traceKeep = 3;                           // --trace-keep, rotated files
  int probeInterval = 250;                     // --probe-interval, milliseconds
  std::string socket;                          // --socket, or its default; empty: no status
  bool socketAsked = false;                    // --socket was given
  bool unguarded = false;                      // --unguarded
  bool check = false;                          // --check
  bool status = false;                         // --status
  bool json = false;                           // --json
  std::optional<double> watch;                 // --watch, seconds
};

// Throws Failure for a bad option. Prints help and version, and leaves, where they are asked for.
Options ParseOptions(int argc, char** argv);

#endif  // HOST_OPTIONS_H_
