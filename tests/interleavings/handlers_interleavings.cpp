// The two handlers and the dispatch, over the real table, in every order of the two workers' steps.
//
//   handlers_interleavings [--must-fail]
//
//   --must-fail   the program has been broken on purpose: succeeds when a fault is found
//
// The query thread receives the scenario's queries one after the other, the answer thread its
// answers, each at any time: one that comes before its question has been sent is a forged one.
//
// How often an application may be answered. Each worker sends first and deletes then, and finds
// the request anew for each datagram. So a worker that has answered a request does not find it
// again: one answer a worker, two altogether. A relayed answer is the only one: it takes a
// position at a server, from which the answer thread alone moves a request on, and the query
// thread answers at another position only. Two answers are the proxy's own, both: an answer
// without records has moved the request past the last server, and each worker has found it there,
// or at the host map, before the other one deleted it. That answer is forged, when the question
// had not been sent, or it meets a query that is dropped because the identifier wraps onto this
// request, which is dispatched again.
#include <arpa/inet.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "dns_proxy_mac/proxy/query_path.h"
#include "dns_proxy_mac/proxy/response_path.h"
#include "dns_proxy_mac/proxy/service_state.h"
#include "tests/interleavings/explorer.h"
#include "tests/interleavings/handlers_stopping.h"

#undef printf  // this file's own lines

namespace interleavings {
namespace {

constexpr int kApplications = 3;  // the descriptors
constexpr int kServers = 4;
constexpr std::size_t kAnswerSize = 16;   // of the scenario's answers: shorter than any query
constexpr std::size_t kRelayedMark = 11;  // a byte that is 0 in a query and in what is made of it
constexpr unsigned short kFirstPort = 40000;

constexpr const char* kServer = "192.0.2.1";
constexpr const char* kSecondServer = "192.0.2.2";
constexpr const char* kUnreachable = "192.0.2.3";  // sending to it fails; answers are forged
constexpr const char* kStranger = "192.0.2.4";

// What was sent for a request.
constexpr unsigned char kRelayed = 1;
constexpr unsigned char kOwnByQueryThread = 2;
constexpr unsigned char kOwnByAnswerThread = 4;
constexpr unsigned char kAnswered = kRelayed | kOwnByQueryThread | kOwnByAnswerThread;
constexpr unsigned char kAsked = 8;
constexpr unsigned char kNotSent = 16;

struct Query {
  char kind;          // n: a name; m: a mapped one; r: a reverse look-up
  unsigned short id;  // the proxy's identifier that its turn has come to
};
struct Answer {
  unsigned short id;
  bool records;
  const char* from;
};
using Queries = std::vector<Query>;
using Answers = std::vector<Answer>;
using Datagram = std::vector<unsigned char>;

Queries queries;                  // the scenario's: the record of the first is number 1
std::vector<Datagram> questions;  // as the applications send them
int bound = 0;                    // answers to one request
int mostAnswers = 0;              // the most that were seen

// What the thread that runs receives.
struct Received {
  Worker worker;
  Datagram bytes;
  sockaddr_in from;
};
const Received* received = nullptr;

sockaddr_in AddressOf(const char* text, unsigned short port) {
  sockaddr_in address = {};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = inet_addr(text);
  return address;
}

// Short enough for a std::string that allocates nothing.
std::string NameOf(char kind, std::size_t number) {
  return kind == 'r' ? std::to_string(number) + ".in-addr.arpa"
                     : kind + std::to_string(number) + ".x";
}

Datagram QuestionOf(const Query& query, std::size_t number) {
  Datagram bytes = {0x41, static_cast<unsigned char>(number), 1, 0, 0, 1, 0, 0, 0, 0, 0, 0};
  const std::string name = NameOf(query.kind, number);
  for (std::size_t begin = 0; begin < name.size();) {
    const std::size_t end = std::min(name.find('.', begin), name.size());
    bytes.push_back(static_cast<unsigned char>(end - begin));
    bytes.insert(bytes.end(), name.begin() + static_cast<std::ptrdiff_t>(begin),
                 name.begin() + static_cast<std::ptrdiff_t>(end));
    begin = end + 1;
  }
  bytes.insert(bytes.end(), {0, 0, 1, 0, 1});
  return bytes;
}

Operation Asked(std::size_t number) {
  const Received query = {Worker::kQuery, questions[number],
                          AddressOf("127.0.0.1", static_cast<unsigned short>(kFirstPort + number))};
  return [query, id = queries[number].id] {
    g_QueryID = id;
    received = &query;
    RecvAndProcessPacketsFromLocalApps(kApplications);
  };
}

Operation Arriving(const Answer& answer) {
  Datagram bytes(kAnswerSize);
  std::memcpy(bytes.data(), &answer.id, sizeof(answer.id));
  bytes[7] = answer.records ? 1 : 0;
  bytes[kRelayedMark] = 1;
  const Received datagram = {Worker::kAnswer, bytes, AddressOf(answer.from, 53)};
  return [datagram] {
    received = &datagram;
    RecvAndProcessPacketsFromDNSServer(kServers);
  };
}

// The thread sends `bytes` to the application at `to`.
void SentToApplication(const unsigned char* bytes, std::size_t length, const sockaddr_in& to) {
  Explorer& explorer = TheExplorer();
  const auto number = static_cast<std::size_t>(ntohs(to.sin_port) - kFirstPort);
  explorer.Require(number < questions.size(), "sent to nobody");
  const Datagram& question = questions[number];
  const bool relayed = length == kAnswerSize && bytes[kRelayedMark] == 1;
  explorer.Require(bytes[0] == question[0] && bytes[1] == question[1] &&
                       (relayed || (length >= question.size() &&
                                    std::equal(question.begin() + 12, question.end(), bytes + 12))),
                   "sent to an application that is not its own");
  const bool byQueryThread = received->worker == Worker::kQuery;
  explorer.Require(!relayed || !byQueryThread, "relayed on the query thread");
  const unsigned char kind =
      relayed ? kRelayed : (byQueryThread ? kOwnByQueryThread : kOwnByAnswerThread);
  const unsigned char before = Step(Access::kSend, static_cast<int>(number) + 1, 0, kind);
  explorer.Require((before & kRelayed) == 0, "another answer behind a relayed one");
  explorer.Require(!relayed || (before & kAnswered) == 0, "an answer relayed behind another one");
  explorer.Require((before & kind) == 0, "a worker answers a request twice");
}

// The thread sends `bytes` to the server at `to`. False if that does not go.
bool SentToServer(const unsigned char* bytes, std::size_t length, const sockaddr_in& to) {
  const auto isOurs = [bytes, length](const Datagram& question) {
    return length == question.size() && std::equal(question.begin() + 2, question.end(), bytes + 2);
  };
  const auto question = std::find_if(questions.begin(), questions.end(), isOurs);
  const auto number = static_cast<std::size_t>(question - questions.begin());
  TheExplorer().Require(question != questions.end(), "a server is asked what nobody asked");
  TheExplorer().Require(std::memcmp(bytes, &queries[number].id, 2) == 0,
                        "a server is asked under another's identifier");
  const bool goes = to.sin_addr.s_addr != inet_addr(kUnreachable);
  Step(Access::kSend, static_cast<int>(number) + 1, 0, goes ? kAsked : kNotSent);
  return goes;
}

void AtEnd(unsigned char /*record*/, bool pending, unsigned char sent) {
  Explorer& explorer = TheExplorer();
  explorer.Require(!pending || (sent & kAnswered) == 0, "an answered request is left");
  explorer.Require(!pending || (sent & kAsked) != 0, "a request waits that no server was asked");
  explorer.Require(pending || (sent & kStored) == 0 || (sent & (kAnswered | kNotSent)) != 0,
                   "a request is deleted that was not answered");
  const int answers = (sent & kRelayed) + (sent & kOwnByQueryThread) / kOwnByQueryThread +
                      (sent & kOwnByAnswerThread) / kOwnByAnswerThread;
  explorer.Require(answers <= bound, "more answers than the scenario allows");
  mostAnswers = std::max(mostAnswers, answers);
}

DNSMethodList Servers(const std::vector<const char*>& addresses) {
  DNSMethodList methods;
  for (const char* const address : addresses) {
    methods.push_back(address == nullptr ? HostMapMethod() : DnsServerMethod(address));
  }
  return methods;
}

bool Run(const DNSMethodList& methods, const Queries& asked, const Answers& answers) {
  g_DnsMethodList = methods;
  queries = asked;
  questions.clear();
  std::vector<Program> programs(2);
  for (std::size_t number = 0; number < asked.size(); ++number) {
    questions.push_back(QuestionOf(asked[number], number));
    programs[0].push_back(Asked(number));
  }
  for (const Answer& answer : answers) {
    programs[1].push_back(Arriving(answer));
  }
  return TheExplorer().Run(programs, 0, kTwoWorkers);
}

bool RunAll(const DNSMethodList& methods, const std::vector<Queries>& asked,
            const std::vector<Answers>& answers) {
  return std::all_of(asked.begin(), asked.end(), [&](const Queries& some) {
    return std::all_of(answers.begin(), answers.end(),
                       [&](const Answers& those) { return Run(methods, some, those); });
  });
}

const DNSMethodList kHostMapThenServer = Servers({nullptr, kServer});
const Answer kRecordsA = {0, true, kServer};
const Answer kRecordsB = {1, true, kServer};
const Answer kEmptyA = {0, false, kServer};
const std::vector<Answers> kAnyTwo = {
    {kRecordsA, kRecordsA}, {kEmptyA, kRecordsA}, {kRecordsA, kEmptyA}, {kEmptyA, kEmptyA}};

// A query and its answer, which comes twice, or from somebody else, or for another identifier.
bool RelayedOnce() {
  return RunAll(kHostMapThenServer, {{{'n', 0}}, {{'n', 0}, {'n', 1}}},
                {{kRecordsA},
                 {kRecordsA, kRecordsA},
                 {kRecordsA, kRecordsB},
                 {{0, true, kStranger}, {0, false, kStranger}, kRecordsA}});
}

// Answers hit a reverse look-up, or a request at its host-map entry.
bool NoServersTurn() {
  return RunAll(kHostMapThenServer, {{{'r', 0}}, {{'m', 0}}, {{'r', 0}, {'m', 0}}}, kAnyTwo);
}

// An answer without records, forged before the question is sent or not, after which no server is
// left: "no such name" by both workers, or the mapped address where the host map is behind.
bool MovedOnBeforeItsQuestion() {
  return RunAll(kHostMapThenServer, {{{'n', 0}}}, kAnyTwo) &&
         RunAll(Servers({kServer, nullptr}), {{{'m', 0}}, {{'n', 0}}}, kAnyTwo) &&
         RunAll(Servers({kServer, kSecondServer}), {{{'n', 0}}},
                {{kEmptyA, {0, true, kSecondServer}}, {kEmptyA, {0, false, kSecondServer}}});
}

// The identifier comes back while its first request is pending, or while it is being answered.
bool IdentifierThatWraps() {
  return RunAll(Servers({kServer}), {{{'n', 0}, {'n', 0}}, {{'n', 0}, {'r', 0}, {'n', 0}}},
                kAnyTwo) &&
         RunAll(kHostMapThenServer, {{{'m', 0}, {'n', 0}}}, kAnyTwo);
}

// The question cannot be sent, and its identifier is used again; forged answers find it.
bool ServerThatCannotBeReached() {
  return RunAll(Servers({kUnreachable}), {{{'n', 0}}, {{'n', 0}, {'n', 0}}},
                {{{0, true, kUnreachable}, {0, true, kUnreachable}},
                 {{0, false, kUnreachable}, {0, true, kUnreachable}}});
}

// Any two queries under two identifiers, and any two answers.
bool EveryMix() {
  std::vector<Queries> asked;
  for (const char first : {'n', 'm', 'r'}) {
    for (const char second : {'n', 'm', 'r'}) {
      asked.push_back({{first, 0}, {second, 0}});
      asked.push_back({{first, 0}, {second, 1}});
    }
  }
  const auto answersFrom = [](const char* server) {
    const std::vector<Answer> some = {{0, true, server},
                                      {0, false, server},
                                      {1, true, server},
                                      {1, false, server},
                                      {0, true, kSecondServer}};
    std::vector<Answers> pairs;
    for (const Answer& first : some) {
      for (const Answer& second : some) {
        pairs.push_back({first, second});
      }
    }
    return pairs;
  };
  const std::vector<Answers> reachable = answersFrom(kServer);
  const std::vector<Answers> unreachable = answersFrom(kUnreachable);
  return RunAll(Servers({kServer}), asked, reachable) &&
         RunAll(kHostMapThenServer, asked, reachable) &&
         RunAll(Servers({kServer, nullptr}), asked, reachable) &&
         RunAll(Servers({kServer, kSecondServer}), asked, reachable) &&
         RunAll(Servers({kUnreachable}), asked, unreachable) &&
         RunAll(Servers({nullptr, kUnreachable, kSecondServer}), asked, unreachable);
}

// False at a fault, and where no request gets as many answers as this file's head derives.
bool ExploreBound(const char* name, bool (*scenarios)(), int answers) {
  mostAnswers = 0;
  bound = answers;
  if (!Explore(name, scenarios)) {
    return false;
  }
  std::printf("  answers to one request: %d at the most\n", mostAnswers);
  return mostAnswers == answers;
}

bool ExploreAll() {
  TheExplorer().KeepAddresses();
  TheExplorer().Ask(AtEnd);
  Watch(g_DnsRequestTable.mapRequests);
  StoreSocket(g_SockToClientApps, kApplications);
  StoreSocket(g_SockToDNSServers, kServers);
  for (std::size_t number = 0; number < 3; ++number) {
    g_Hostmaps.Add(NameOf('m', number).data(), "192.0.2.80");
  }
  return ExploreBound("relayed once", RelayedOnce, 1) &&
         ExploreBound("no server's turn", NoServersTurn, 1) &&
         ExploreBound("moved on before its question", MovedOnBeforeItsQuestion, 2) &&
         ExploreBound("a server that cannot be reached", ServerThatCannotBeReached, 2) &&
         ExploreBound("an identifier that wraps", IdentifierThatWraps, 2) &&
         ExploreBound("any two queries, any two answers", EveryMix, 2);
}

}  // namespace

ssize_t Receive(int /*sock*/, void* bytes, std::size_t /*room*/, int /*flags*/, sockaddr* from,
                socklen_t* fromLength) {
  std::memcpy(bytes, received->bytes.data(), received->bytes.size());
  std::memcpy(from, &received->from, sizeof(received->from));
  *fromLength = sizeof(received->from);
  return static_cast<ssize_t>(received->bytes.size());
}

ssize_t Send(int sock, const void* bytes, std::size_t length, int /*flags*/, const sockaddr* to,
             socklen_t /*toLength*/) {
  sockaddr_in address;
  std::memcpy(&address, to, sizeof(address));
  const auto* const message = static_cast<const unsigned char*>(bytes);
  if (sock == kServers) {
    return SentToServer(message, length, address) ? static_cast<ssize_t>(length) : -1;
  }
  SentToApplication(message, length, address);
  return static_cast<ssize_t>(length);
}

}  // namespace interleavings

int main(int argc, char** argv) {
  const bool mustFail = argc > 1 && std::string(argv[1]) == "--must-fail";
  const bool good = interleavings::ExploreAll();
  const bool found = !interleavings::TheExplorer().Fault().empty();
  return (mustFail ? found : good) ? 0 : 1;
}
