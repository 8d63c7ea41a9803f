// The reader of traces: what it tells of a trace that a small service has written here, which knows
// what became of each query; and any bytes at all, which have to be counted to the last line.
//
// Input: a byte of choices. Odd: the rest is the trace. Even: each next byte is an event, with what
// it needs behind it.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "fuzz/input.h"
#include "fuzz/require.h"
#include "trace_reader/stories.h"
#include "trace_reader/summary.h"

namespace {

using fuzz::Require;

using Told = std::tuple<int, std::string, std::string, Outcome>;  // identifier, name, road, outcome

struct Reading {
  std::vector<Told> stories;
  std::size_t strange = 0;
  std::string text;
};

// Reads `trace`, given in pieces of `kLookAhead` bytes and `more`.
Reading Read(std::string_view trace, std::size_t more) {
  Reading reading;
  Summary summary;
  std::size_t at = 0;
  const Counts counts = ReadStories(
      [&](std::size_t taken) {
        at += taken;
        return trace.substr(at, kLookAhead + more);
      },
      [&](const Story& story) {
        summary.Add(story);
        reading.stories.emplace_back(story.id, story.name, story.road, story.outcome);
      },
      [&](std::string_view line) {
        ++reading.strange;
        reading.text += Printable(line, ' ');
      });
  Require(at == trace.size(), "all of the trace is read");
  const std::vector<Table> tables = summary.Tables(counts);
  for (const Table& table : tables) {
    reading.text += Text(table);
    std::uint64_t sum = 0;
    for (const auto& row : table.rows) {
      sum += row.first == "all queries" ? 0 : row.second[0];
    }
    Require(table.title != "Outcomes" || sum == reading.stories.size(), "one outcome a query");
  }
  reading.text += summary.Page(tables);
  return reading;
}

// The service as far as its trace goes: a host map of one name, two servers, two threads, each of
// which prints its lines in order while the other prints between them.
class Service {
 public:
  explicit Service(fuzz::Input& input) : input_(input) {
    Print("StartDnsSrv", " bind 127.0.0.1:53 success");
    Print("StartDnsSrv", " Add host map: mapped -> 10.1.2.3");
    Print("StartDnsSrv", " Add SP DNS to list: 192.0.2.1");
    Print("StartDnsSrv", " Add SP DNS to list: 192.0.2.2");
  }

  void Run() {
    for (int events = 0; events < 200; ++events) {
      const unsigned char event = input_.Byte();
      if (event == 0) {
        break;
      }
      Worker& worker = event & 1 ? query_ : answer_;
      if (!worker.lines.empty()) {
        trace += worker.lines.front();
        worker.lines.pop_front();
      } else if (&worker == &query_) {
        Query(event & 2);
      } else {
        Answer();
      }
    }
    for (Worker* const worker : {&query_, &answer_}) {
      for (const std::string& line : worker->lines) {
        trace += line;
      }
    }
    pending_.merge(asked_);
    for (const auto& [id, request] : pending_) {
      expected.emplace_back(id, request.name, request.road + " silent", kUnanswered);
    }
  }

  std::string trace;
  std::vector<Told> expected;

 private:
  struct Worker {
    std::deque<std::string> lines;  // still to be printed
  };
  struct Request {
    std::string name;
    std::string road;
    int server;
  };

  void Print(const std::string& function, const std::string& text) {
    trace += "func: " + function + "(line:1)" + text + "\n";
  }
  static void Add(Worker& worker, const std::string& function, const std::string& text) {
    worker.lines.push_back("func: " + function + "(line:" + std::to_string(text.size()) + ")" +
                           text + "\n");
  }

  void Dispatch(Worker& worker, int id, int position) {
    const std::string number = std::to_string(id);
    Add(worker, "TryNextDNSQueryMethod",
        "TryNextDNSQueryMethod: id: " + number + ", bReasonIsTimeout:0");
    Add(worker, "TryNextDNSQueryMethod",
        " CurrentDNSMethodIndex: " + std::to_string(position) + ", DnsListSize:3");
    if (position >= 3) {
      Add(worker, "TryNextDNSQueryMethod", " no more DNS methods, send no such name response");
    } else {
      worker.lines.push_back("**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:" +
                             std::to_string(position == 0 ? 1 : 0) + "(0: dns, 1:hostmap)\n");
    }
  }

  void Query(bool additional) {
    const int id = next_++;
    const fuzz::Bytes bytes = input_.Take(input_.Byte() % 64);
    std::string name(bytes.begin(), bytes.end());
    std::erase(name, '\0');
    name = name.empty() ? "mapped" : name;
    const std::string received = std::to_string(name.size() + (additional ? 200 : 18));
    constexpr char kFunction[] = "RecvAndProcessPacketsFromLocalApps";
    Add(query_, "thread_query", " ****QureyThread***: received dns request");
    Add(query_, kFunction, "FromAPP: received " + received + " data from 127.0.0.1");
    Add(query_, kFunction, " pDNSHeader QuestionCount :1");
    Add(query_, kFunction, " received dns request............" + name);
    Add(query_, kFunction, "FromAPP: the request domain is " + name + ", id:" + std::to_string(id));
    if (name.find(".in-addr.arpa") != std::string::npos) {
      Dispatch(query_, id, 159);
      expected.emplace_back(id, name, "reverse look-up", kNoSuchName);
      return;
    }
    Dispatch(query_, id, 0);
    if (name == "mapped") {
      Add(query_, "TryNextDNSQueryMethod",
          " find mapped from hostmap, ip:10.1.2.3, req id:" + std::to_string(id));
      expected.emplace_back(id, name, "map answered 10.1.2.3", kFromMap);
      return;
    }
    Dispatch(query_, id, 1);
    asked_[id] = {name, "map → 192.0.2.1", 1};
  }

  // An answer to a query of which all lines have been printed, or to nobody's.
  void Answer() {
    if (query_.lines.empty()) {
      pending_.merge(asked_);
    }
    const unsigned char choice = input_.Byte();
    auto request = pending_.begin();
    std::advance(request, pending_.empty() ? 0 : choice / 4 % static_cast<int>(pending_.size()));
    constexpr char kFunction[] = "RecvAndProcessPacketsFromDNSServer";
    Add(answer_, "thread_answer", " AnswerThread: received dns response.");
    if (request == pending_.end() || choice % 4 == 0) {
      Add(answer_, kFunction, " rsp from: 192.0.2.9, id: 65535, request not found");
      return;
    }
    auto& [id, what] = *request;
    const std::string number = std::to_string(id);
    const std::string server = "192.0.2." + std::to_string(what.server);
    Add(answer_, kFunction, " FromDNSServer: recv 60 data from " + server);
    if (choice % 4 == 1) {
      Add(answer_, kFunction,
          " id: " + number + ", dns_index:1 current dns rsp from: 192.0.2.9, should from: " +
              server + ", it seems error");
    } else if (choice % 4 == 2) {
      Add(answer_, kFunction,
          " domain " + what.name + " received answer 1.2.-3.4 from " + server +
              ", we have to delete id:" + number);
      expected.emplace_back(id, what.name, what.road + " answered", kAnswered);
      pending_.erase(request);
    } else {
      Add(answer_, kFunction,
          " rsp from: " + server + ", id: " + number + ", for : " + what.name + ", no such name");
      Dispatch(answer_, id, ++what.server);
      what.road += " no such name";
      if (what.server < 3) {
        what.road += " → 192.0.2.2";
        return;
      }
      expected.emplace_back(id, what.name, what.road, kNoSuchName);
      pending_.erase(request);
    }
  }

  fuzz::Input& input_;
  int next_ = 0;
  std::map<int, Request> asked_;    // by queries whose lines are still to be printed
  std::map<int, Request> pending_;  // by those that wait for a server
  Worker query_;
  Worker answer_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const unsigned char choices = input.Byte();
  if (choices & 1) {
    const fuzz::Bytes bytes = input.Rest();
    const Reading reading =
        Read({reinterpret_cast<const char*>(bytes.data()), bytes.size()}, choices);
    for (std::size_t i = 0; i < reading.text.size(); ++i) {
      const auto c = static_cast<unsigned char>(reading.text[i]);
      Require(c == '\n' || (c >= ' ' && c != 0x7f), "nothing is written that draws on a terminal");
      Require(c < 0x80 || c == 0xE2 || c == 0x86 || c == 0x92,
              "no bytes of the trace are written as they are");
    }
    return 0;
  }
  Service service(input);
  service.Run();
  Reading reading = Read(service.trace, choices);
  std::sort(reading.stories.begin(), reading.stories.end());
  std::sort(service.expected.begin(), service.expected.end());
  if (reading.stories != service.expected) {
    std::fprintf(stderr, "%s", service.trace.c_str());
  }
  Require(reading.stories == service.expected, "each story is what became of the query");
  Require(reading.strange == 0, "each line is understood");
  return 0;
}
