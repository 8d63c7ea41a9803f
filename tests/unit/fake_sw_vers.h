// /usr/bin/sw_vers as a test wants it.
#ifndef TESTS_UNIT_FAKE_SW_VERS_H_
#define TESTS_UNIT_FAKE_SW_VERS_H_

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/platform_calls.h"

// While it lives, popen gives a stream of `output` and pclose says `status`. How both were called,
// and how often the stream was read, is kept.
class FakeSwVers {
 public:
  explicit FakeSwVers(std::string output, int status = 0)
      : output_(std::move(output)), status_(status) {}

  // The commands with their modes, as "command|mode".
  std::vector<std::string> opened;
  int reads = 0;
  int closed = 0;

 private:
  std::FILE* Open(const char* command, const char* mode) {
    opened.push_back(std::string(command) + "|" + mode);
    std::FILE* const stream = std::tmpfile();
    std::fwrite(output_.data(), 1, output_.size(), stream);
    std::rewind(stream);
    return stream;
  }

  std::string output_;
  int status_;
  support::Replaced<std::FILE*(const char*, const char*)> popen_{
      support::platform::popen, [this](auto... arguments) { return Open(arguments...); }};
  support::Replaced<char*(char*, int, std::FILE*)> fgets_{
      support::platform::fgets, [this](char* line, int size, std::FILE* stream) {
        ++reads;
        return support::platform::fgets.System(line, size, stream);
      }};
  support::Replaced<int(std::FILE*)> pclose_{support::platform::pclose, [this](std::FILE* stream) {
                                               ++closed;
                                               std::fclose(stream);
                                               return status_;
                                             }};
};

#endif  // TESTS_UNIT_FAKE_SW_VERS_H_
