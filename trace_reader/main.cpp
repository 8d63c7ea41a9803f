// dns_proxy_trace: tells what became of each query in a trace.
#include <fnmatch.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <fstream>
#include <string>
#include <string_view>

#include "trace_reader/input.h"
#include "trace_reader/page.h"
#include "trace_reader/pattern.h"
#include "trace_reader/stories.h"
#include "trace_reader/summary.h"

namespace {

struct Options {
  std::vector<std::string> files;
  bool summary = false;
  bool stories = false;
  bool strange = false;
  std::string name;
  std::string page;
  std::size_t top = 10;
};

Options ParseOptions(int argc, char** argv) {
  Options options;
  CLI::App app("Tells what became of each query in traces of the local DNS proxy.",
               "dns_proxy_trace");
  app.set_version_flag("--version", std::string("dns_proxy_trace ") + DNS_PROXY_MAC_VERSION);
  app.add_option("FILE", options.files, "Traces, rotated ones too; none, or -: standard input");
  app.add_flag("--summary", options.summary, "Counts (the default)");
  app.add_flag("--stories", options.stories, "A line a query: identifier, name, road, outcome");
  app.add_option("--name", options.name,
                 "Only queries for names like this: * is any text, ? a byte");
  app.add_option("--html", options.page, "Write a page with everything to this file");
  app.add_flag("--strange", options.strange, "Print the lines that are not understood");
  app.add_option("--top", options.top, "Rows of the tables of names")->check(CLI::Range(1, 1000));
  try {
    app.parse(argc, argv);
    if (options.files.empty() && isatty(STDIN_FILENO)) {
      throw CLI::RequiredError("FILE");
    }
  } catch (const CLI::ParseError& error) {
    std::exit(app.exit(error) == 0 ? 0 : 2);
  }
  if (options.files.empty()) {
    options.files.emplace_back("-");
  }
  options.summary =
      options.summary || !(options.stories || options.strange || !options.page.empty());
  return options;
}

void PrintStory(const Story& story) {
  constexpr std::size_t kArrow = 2;  // bytes that are no column
  const auto arrows = static_cast<int>(
      kArrow * static_cast<std::size_t>(std::count(story.road.begin(), story.road.end(), '\xe2')));
  std::printf("%5d  %-30s  %-*s  %s\n", story.id, Printable(story.name).c_str(), 50 + arrows,
              story.road.c_str(), kOutcomes[story.outcome].data());
}

// A line may be as long as the file: its beginning.
void PrintStrange(std::string_view line) {
  std::string text = Printable(line.substr(0, 500));
  for (std::size_t at = text.find("\\032"); at != std::string::npos; at = text.find("\\032", at)) {
    text.replace(at, 4, " ");
  }
  std::puts(text.c_str());
}

void Read(const Options& options) {
  const bool lines = options.stories || options.strange;
  Input input(options.files, isatty(STDERR_FILENO) && !(lines && isatty(STDOUT_FILENO)));
  Summary summary;
  const Counts counts = ReadStories(
      [&](std::size_t taken) { return input.Next(taken, kLookAhead); },
      [&](const Story& story) {
        if (options.name.empty() ||
            fnmatch(options.name.c_str(), Printable(story.name).c_str(), FNM_NOESCAPE) == 0) {
          summary.Add(story);
          options.stories ? PrintStory(story) : void();
        }
      },
      [&](std::string_view line) { options.strange ? PrintStrange(line) : void(); });
  const std::vector<Table> tables = summary.Tables(counts, options.top);
  if (options.summary) {
    std::fputs(Text(tables).c_str(), stdout);
  }
  if (!options.page.empty()) {
    std::ofstream file(options.page, std::ios::binary);
    if (!(file << Page(summary, tables)).flush()) {
      throw std::runtime_error(options.page + ": cannot be written");
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    Read(ParseOptions(argc, argv));
    return std::fflush(stdout) == 0 ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "dns_proxy_trace: %s\n", error.what());
    return 1;
  }
}
