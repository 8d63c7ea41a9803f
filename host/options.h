// The command line.
#ifndef HOST_OPTIONS_H_
#define HOST_OPTIONS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "host/clock.h"

struct Options {
  std::vector<std::string> servers;     // --server, as given
  std::vector<std::string> maps;        // --map, NAME=ADDRESS as given
  std::vector<std::string> hostsFiles;  // --hosts
  std::string user;                     // --user; empty: nobody if started as root
  std::string trace;                    // --trace: a file, "-", or empty for none
  std::uint64_t traceSize = 0;          // --trace-size, bytes
  int traceKeep = 0;                    // --trace-keep, rotated files
  Milliseconds probeInterval{0};        // --probe-interval
  std::string socket;                   // --socket; empty: no status
  bool check = false;                   // --check
  bool status = false;                  // --status
  bool json = false;                    // --json
};

// Reads the command line into `options`. An exit status when there is nothing more to do: help or
// the version has been printed, or a bad option has been explained.
std::optional<int> ParseOptions(int argc, char** argv, Options& options);

#endif  // HOST_OPTIONS_H_
