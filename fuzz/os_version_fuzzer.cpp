// The version: any output of the system's tool, and any text to classify.
//
// Input: a byte for the size of the caller's buffer above 128, then the tool's output.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "dns_proxy_mac/startup/library_placement.h"
#include "dns_proxy_mac/startup/os_version.h"
#include "fuzz/input.h"
#include "fuzz/require.h"
#include "fuzz/trace_text.h"
#include "tests/support/platform_calls.h"

namespace {

using fuzz::Require;

std::FILE* FileOf(const std::string& bytes) {
  std::FILE* const file = std::tmpfile();
  Require(file != nullptr, "a file for the tool's output");
  std::fwrite(bytes.data(), 1, bytes.size(), file);
  std::rewind(file);
  return file;
}

// The text that has to be kept of `output`: its first line with the word, or its last one. Lines
// come in pieces of at most 127 characters, and a zero byte hides the rest of a piece.
std::string OracleKeeps(const std::string& output, support::TraceLines& trace) {
  std::string kept;
  for (std::size_t at = 0; at < output.size();) {
    const std::size_t feed = output.find('\n', at);
    const std::size_t end =
        std::min({feed == std::string::npos ? output.size() : feed + 1, output.size(), at + 127});
    kept = output.substr(at, end - at).c_str();
    at = end;
    if (!kept.empty() && kept.back() == '\n') {
      kept.pop_back();
    }
    if (kept.find("ProductVersion") != std::string::npos) {
      trace.push_back("vpnd: mac cmd get os version buf=" + kept + ".");
      break;
    }
  }
  return kept;
}

LibraryPlacement OracleClassifies(const std::string& text) {
  const auto holds = [&text](const std::string& version) {
    return text.find(version + ".") != std::string::npos;
  };
  for (int minor = 8; minor <= 15; ++minor) {
    if (holds("10." + std::to_string(minor))) {
      return LibraryPlacement::kRemove;
    }
  }
  for (int major = 11; major <= 20; ++major) {
    if (holds(std::to_string(major))) {
      return LibraryPlacement::kPlace;
    }
  }
  return LibraryPlacement::kRemoveUnknown;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t length = 128 + input.Byte();
  const fuzz::Bytes bytes = input.Rest();
  const std::string output(bytes.begin(), bytes.end());
  const support::Replaced start(support::platform::popen,
                                [&output](const char*, const char*) { return FileOf(output); });
  const support::Replaced end(support::platform::pclose,
                              [](std::FILE* stream) { return std::fclose(stream); });

  const std::unique_ptr<char[]> buffer(new char[length]);
  std::fill_n(buffer.get(), length, '\x7E');
  fuzz::TraceText trace;
  get_os_ver(buffer.get(), static_cast<int>(length));
  const support::TraceLines lines = trace.Stop();

  support::TraceLines expectedTrace = {
      "vpnd: mac get os version from file failed, start get os version from command line"};
  std::string expected = OracleKeeps(output, expectedTrace);
  const std::string kept = expected;
  expected.resize(length, '\0');
  Require(std::string(buffer.get(), length) == expected, "the kept line, and zero behind it");
  fuzz::RequireTrace(expectedTrace, lines);

  Require(ClassifyOsVersion(kept.c_str()) == OracleClassifies(kept), "the kept line's class");
  const std::string whole = output.c_str();
  Require(ClassifyOsVersion(whole.c_str()) == OracleClassifies(whole), "any text's class");
  return 0;
}
