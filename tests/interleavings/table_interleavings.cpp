// The table of pending requests in every order of two or more workers' steps.
//
//   table_interleavings [--long] [--must-fail]
//
//   --long        and what takes minutes
//   --must-fail   the program has been broken on purpose: succeeds when a fault is found
#include <memory>
#include <string>
#include <vector>

#include "dns_proxy_mac/proxy/request_table.h"
#include "tests/interleavings/explorer.h"

namespace interleavings {
namespace {

using Pass = PendingRequests::Pass;
using Position = RequestTable::Position;

RequestTable* table = nullptr;

void Add(unsigned short id) {
  std::unique_ptr<DnsRequest> record(new DnsRequest);
  record->QueryID = id;
  record->CurrentDNSMethodIndex = 0;
  table->Add(std::move(record));
}

// What a handler does with a record that it has found: reads it, and moves it on.
void Look(const Position& position) {
  AdvanceMethodIndex(*position->second, MethodIndex(*position->second));
}

bool FindAndLook(unsigned short id, Position& position) {
  if (!table->Find(id, position)) {
    return false;
  }
  Look(position);
  return true;
}

void Delete(const Position& position) {
  TheExplorer().WillDelete(position->second);
  table->Delete(position);
  TheExplorer().WillDelete(nullptr);
}

// The kinds of operations, each a pass of its own.
void AddA() { Add(0); }
void LookAtA() {
  Position position;
  FindAndLook(0, position);
}
void AnswerA() {
  Position position;
  if (FindAndLook(0, position)) {
    Delete(position);
  }
}
void DeleteA() { table->Delete(0); }
void AskB() {
  Add(1);
  Position position;
  FindAndLook(1, position);
}
void AnswerB() {
  Position position;
  if (FindAndLook(1, position)) {
    Delete(position);
  }
}
void LookAtAThenB() {
  Position position;
  FindAndLook(0, position);
  FindAndLook(1, position);
}
void MoveAOnAndAnswerIt() {
  Position position;
  if (FindAndLook(0, position) && FindAndLook(0, position)) {
    Delete(position);
  }
}
void AskA() {
  Add(0);
  Position position;
  FindAndLook(0, position);
}

using Kind = void (*)();
constexpr Kind kKinds[] = {AddA, LookAtA, AnswerA,      DeleteA,
                           AskB, AnswerB, LookAtAThenB, MoveAOnAndAnswerIt};
constexpr Kind kOneIdentifier[] = {AskA, AnswerA, MoveAOnAndAnswerIt};

Operation InPass(Worker worker, Kind kind) {
  return [worker, kind] {
    const Pass pass(table->mapRequests, worker);
    kind();
  };
}

// A pass of the query worker's as it copies the lists first.
Operation InPassWithLists(Kind kind) {
  return [kind] {
    const Pass pass(table->mapRequests, Worker::kQuery);
    TheExplorer().ReadLists();
    kind();
  };
}

void StartAgain() {
  TheExplorer().WillStart();
  const PendingRequests::NoPass noPass(table->mapRequests);
  TheExplorer().WriteLists();
}

// What a remover without a pass does: a host, or a test, that deletes by identifier.
void RemoveA() { table->Delete(0); }

// A table whose slots of two identifiers, and whose words, the explorer watches.
void MakeTable() {
  table = new RequestTable;  // kept: the explorer's cells are in it
  Watch(table->mapRequests);
}

// Three threads: the fourth word is not in use, and nobody closes the table.
constexpr unsigned kThreeWorkers = 0x8U << kTaken | 0x8U << kHeld | 1U << kClosing;

// Two operations of each worker, of every kind, on three tables to begin with.
bool TwoAndTwo() {
  for (int pending = 0; pending <= kIdentifiers; ++pending) {
    for (const Kind q1 : kKinds) {
      for (const Kind q2 : kKinds) {
        for (const Kind a1 : kKinds) {
          for (const Kind a2 : kKinds) {
            if (!TheExplorer().Run({{InPass(Worker::kQuery, q1), InPass(Worker::kQuery, q2)},
                                    {InPass(Worker::kAnswer, a1), InPass(Worker::kAnswer, a2)}},
                                   pending, kTwoWorkers)) {
              return false;
            }
          }
        }
      }
    }
  }
  return true;
}

// Three of each on one identifier: it wraps onto a pending request, which is refused, or onto one
// that is being answered.
bool ThreeAndThreeOnOneIdentifier() {
  const Operation ask = InPass(Worker::kQuery, AskA);
  for (const Kind first : kOneIdentifier) {
    for (const Kind second : kOneIdentifier) {
      for (const Kind third : kOneIdentifier) {
        if (!TheExplorer().Run({{ask, ask, ask},
                                {InPass(Worker::kAnswer, first), InPass(Worker::kAnswer, second),
                                 InPass(Worker::kAnswer, third)}},
                               0, kTwoWorkers)) {
          return false;
        }
      }
    }
  }
  return true;
}

// A query thread of an earlier start beside those of the next one, at one request.
bool LeftoverQueryThread() {
  return TheExplorer().Run({{InPass(Worker::kQuery, LookAtA)},
                            {InPass(Worker::kQuery, DeleteA)},
                            {InPass(Worker::kAnswer, AnswerA)}},
                           1, kThreeWorkers) &&
         TheExplorer().Run({{InPass(Worker::kQuery, AnswerA)},
                            {InPass(Worker::kQuery, LookAtA)},
                            {InPass(Worker::kAnswer, AnswerA)}},
                           1, kThreeWorkers);
}

// The same as it is: two that ask under one identifier, and a third that answers.
bool LeftoverQueryThreadThatAsks() {
  return TheExplorer().Run({{InPass(Worker::kQuery, AskA)},
                            {InPass(Worker::kQuery, AskA)},
                            {InPass(Worker::kAnswer, AnswerA)}},
                           0, kThreeWorkers);
}

bool StartBesideALeftoverThread() {
  return TheExplorer().Run({{InPassWithLists(AskA)}, {StartAgain, InPassWithLists(AnswerA)}}, 0, 0);
}

bool RemoverWithoutAPass() {
  for (const Kind query : kKinds) {
    for (const Kind answer : kKinds) {
      if (!TheExplorer().Run(
              {{InPass(Worker::kQuery, query)}, {InPass(Worker::kAnswer, answer)}, {RemoveA}}, 1,
              kTwoWorkers)) {
        return false;
      }
    }
  }
  return true;
}

bool ExploreAll(bool atLength) {
  return Explore("a start beside a leftover thread", StartBesideALeftoverThread) &&
         Explore("a leftover thread and two workers", LeftoverQueryThread) &&
         Explore("a remover without a pass", RemoverWithoutAPass) &&
         Explore("3 + 3 on one identifier", ThreeAndThreeOnOneIdentifier) &&
         Explore("2 + 2 of eight kinds", TwoAndTwo) &&
         (!atLength || Explore("a leftover thread that asks", LeftoverQueryThreadThatAsks));
}

}  // namespace
}  // namespace interleavings

int main(int argc, char** argv) {
  const std::string option = argc > 1 ? argv[1] : "";
  interleavings::MakeTable();
  const bool good = interleavings::ExploreAll(option == "--long");
  return good == (option == "--must-fail") ? 1 : 0;
}
