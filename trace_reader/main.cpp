// dns_proxy_trace: tells what became of each query in a trace.
#include <fnmatch.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "trace_reader/input.h"
#include "trace_reader/stories.h"
#include "trace_reader/summary.h"

namespace {

void Run(int argc, char** argv) {
  std::vector<std::string> files;
  bool counts = false, stories = false, odd = false;
  std::string pattern, page;
  CLI::App app("Tells what became of each query in traces of the local DNS proxy.",
               "dns_proxy_trace");
  app.set_version_flag("--version", std::string("dns_proxy_trace ") + DNS_PROXY_MAC_VERSION);
  app.add_option("FILE", files, "Traces, rotated ones too; none, or -: standard input");
  app.add_flag("--summary", counts, "Counts (the default)");
  app.add_flag("--stories", stories, "A line a query: identifier, name, road, outcome");
  app.add_option("--name", pattern, "Only queries for names like this: * is any text, ? a byte");
  app.add_option("--html", page, "Write a page with everything to this file");
  app.add_flag("--strange", odd, "Print the lines that are not understood");
  try {
    app.parse(argc, argv);
    if (files.empty() && isatty(STDIN_FILENO)) throw CLI::RequiredError("FILE");
  } catch (const CLI::ParseError& error) {
    std::exit(app.exit(error) == 0 ? 0 : 2);
  }

  const bool lines = stories || odd;
  Input input(files, isatty(STDERR_FILENO) && !(lines && isatty(STDOUT_FILENO)));
  Summary summary;
  const auto ended = [&](const Story& story) {
    if (pattern.empty() ||
        fnmatch(pattern.c_str(), Printable(story.name).c_str(), FNM_NOESCAPE) == 0) {
      summary.Add(story);
      stories&& std::fputs(Text(story).c_str(), stdout);
    }
  };
  const auto strange = [&](std::string_view line) {
    constexpr std::size_t kShown = 500;  // it may be as long as the file
    odd&& std::puts(Printable(line.substr(0, kShown), ' ').c_str());
  };
  const Counts told =
      ReadStories([&](std::size_t taken) { return input.Next(taken, kLookAhead); }, ended, strange);
  const std::vector<Table> tables = summary.Tables(told);
  for (const Table& table : tables) {
    if (counts || (!lines && page.empty())) {
      std::printf("%s%s", &table == tables.data() ? "" : "\n", Text(table).c_str());
    }
  }
  if (!page.empty() && !(std::ofstream(page, std::ios::binary) << summary.Page(tables)).flush()) {
    throw std::runtime_error(page + ": cannot be written");
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Run(argc, argv);
    return std::fflush(stdout) == 0 ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "dns_proxy_trace: %s\n", error.what());
    return 1;
  }
}
