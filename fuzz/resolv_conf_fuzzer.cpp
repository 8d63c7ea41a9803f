// The machine's resolvers: any bytes as /etc/resolv.conf, against a reading of our own.
//
// This executable defines the call by which the standard library's file stream opens a file, and
// gives it a file of the input's bytes for that one path.
#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "dns_proxy_mac/proxy/dns_proxy.h"
#include "fuzz/require.h"
#include "fuzz/trace_text.h"

namespace {

using fuzz::Require;

std::string content;
int timesOpened = 0;

std::FILE* Open(const char* function, const char* path, const char* mode) {
  using Opener = std::FILE* (*)(const char*, const char*);
  if (std::strcmp(path, "/etc/resolv.conf") != 0) {
    return reinterpret_cast<Opener>(dlsym(RTLD_NEXT, function))(path, mode);
  }
  ++timesOpened;
  std::FILE* const file = std::tmpfile();
  Require(file != nullptr, "a file for the input");
  std::fwrite(content.data(), 1, content.size(), file);
  std::rewind(file);
  return file;
}

// What has to be read: up to three values, and the trace.
struct Reading {
  std::array<std::string, 3> values;
  support::TraceLines trace;
};

Reading OracleReads(std::string rest) {
  Reading reading;
  int seen = 0;
  while (!rest.empty() && seen < 4) {
    const std::size_t end = rest.find('\n');
    // printf and the search end at a zero byte; the line does not.
    const std::string line = rest.substr(0, end).c_str();
    rest = end == std::string::npos ? "" : rest.substr(end + 1);
    reading.trace.push_back("read dns: " + line);
    const std::size_t word = line.find("nameserver");
    if (word == std::string::npos) {
      continue;
    }
    const std::size_t value = line.find_first_not_of(' ', word + std::strlen("nameserver"));
    if (value == std::string::npos) {
      continue;
    }
    if (seen < 3) {
      reading.values[static_cast<std::size_t>(seen)] = line.substr(value);
    }
    ++seen;
  }
  return reading;
}

}  // namespace

extern "C" std::FILE* fopen(const char* path, const char* mode) {
  return Open("fopen", path, mode);
}

#if defined(__GLIBC__)
extern "C" std::FILE* fopen64(const char* path, const char* mode) {
  return Open("fopen64", path, mode);
}
#endif

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  content.assign(data, data + size);
  timesOpened = 0;
  const Reading expected = OracleReads(content);

  // Each buffer has room for its value and no byte more, and is filled with what must stay.
  constexpr char kUntouched = '\x7E';
  std::array<std::unique_ptr<char[]>, 3> buffers;
  for (std::size_t i = 0; i < buffers.size(); ++i) {
    buffers[i].reset(new char[expected.values[i].size() + 1]);
    std::fill_n(buffers[i].get(), expected.values[i].size() + 1, kUntouched);
  }
  fuzz::TraceText trace;
  get_localdns_dnsproxy(buffers[0].get(), buffers[1].get(), buffers[2].get());
  const support::TraceLines lines = trace.Stop();

  Require(timesOpened == 1, "the file is opened once");
  for (std::size_t i = 0; i < buffers.size(); ++i) {
    Require(std::string(buffers[i].get(), expected.values[i].size() + 1) ==
                expected.values[i] + kUntouched,
            "a value's own bytes and no terminator");
  }
  fuzz::RequireTrace(expected.trace, lines);
  return 0;
}
