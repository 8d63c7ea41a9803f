// Runs a few threads over one table in every order of their steps.
//
// A step is one access to a slot or a word, one look into a record, one allocation or freeing of a
// record, or one datagram sent. There is one real thread. To let thread T make a step, its
// operation is run from its beginning with what its earlier steps have read; the next step is made
// on the state, and the operation is left in front of the one behind it (longjmp: what is on its
// stack is forgotten). A state is thus a few bytes that can be copied, and is visited once: two
// orders that lead to the same state have the same future. States are told apart by 64 bits of a
// hash.
//
// The orders are sequentially consistent ones: each step sees what the last one wrote.
#ifndef TESTS_INTERLEAVINGS_EXPLORER_H_
#define TESTS_INTERLEAVINGS_EXPLORER_H_

#include <setjmp.h>

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

#include "dns_proxy_mac/proxy/pending_requests.h"
#include "tests/interleavings/stopping.h"

namespace interleavings {

// Cells: the slots of two identifiers, then the words' `taken`, then what they hold, then closing.
inline constexpr int kIdentifiers = 2;
inline constexpr int kWords = 4;
inline constexpr int kTaken = kIdentifiers;
inline constexpr int kHeld = kTaken + kWords;
inline constexpr int kClosing = kHeld + kWords;
inline constexpr int kCells = kClosing + 1;
inline constexpr int kRecords = 10;
inline constexpr int kThreads = 4;
inline constexpr int kSteps = 40;  // of one operation

// The cells that are quiet (see Run) while there are two workers, each with the word that is its
// own: nobody waits for a word, and those of more threads are not in use.
inline constexpr unsigned kTwoWorkers = 0xFU << kTaken | 0xCU << kHeld | 1U << kClosing;

// Of what was sent for a record: not sent, but the record has been in the table.
inline constexpr unsigned char kStored = 0x80;

using Operation = std::function<void()>;
using Program = std::vector<Operation>;  // one thread's

class Explorer {
 public:
  struct Totals {
    long scenarios = 0;
    long states = 0;
    double interleavings = 0;
  };

  // Every order of `programs`, with records under the first `pending` identifiers. False, and the
  // steps that led there in Fault(), at the first fault.
  //
  // `quiet`: cells that one thread alone uses, or that nobody writes, as bits. A step on one of
  // them is made together with the next: no order of it can matter to the others.
  bool Run(const std::vector<Program>& programs, int pending, unsigned quiet);

  // A freed record's address is not given out again: the first record that is made in an order is
  // number 1, the next one number 2. What they hold is then the same in every order.
  void KeepAddresses() { keepsAddresses_ = true; }

  // Called for each record when all threads have ended. `sent`: kStored, and the scenario's bits.
  using AtEnd = void (*)(unsigned char record, bool pending, unsigned char sent);
  void Ask(AtEnd atEnd) { atEnd_ = atEnd; }

  const Totals& Seen() const { return totals_; }
  const std::string& Fault() const { return fault_; }

  // What operations say. None is a step.
  void WillDelete(const void* record);    // null: whatever is there
  void WillStart() { starting_ = true; }  // StartDnsSrv's part: waits for every word in turn
  void Require(bool holds, const char* otherwise);

  // The lists that a later start writes. Each is two steps, of which none of another thread's may
  // lie between.
  void ReadLists();
  void WriteLists();

  unsigned char Step(Access access, int cell, unsigned char expected, unsigned char desired);
  void Yield();
  bool Running() const { return running_; }
  unsigned char LastMade() const { return lastMade_; }

 private:
  enum class Life : unsigned char { kNever, kAlive, kFreed };

  struct Thread {
    unsigned char operation;
    unsigned char steps;
    unsigned char read[kSteps];
  };
  struct State {
    unsigned char cell[kCells];
    Life life[kRecords];
    unsigned char identifier[kRecords];
    unsigned char position[kRecords];
    unsigned char sent[kRecords];
    unsigned char readers;
    unsigned char writers;
    Thread thread[kThreads];
  };

  struct Made {
    int thread;
    Access access;
    int cell;
    int expected;
    int desired;
    int read;
  };

  double From(const State& state);
  void Advance(State& state, int thread, int choice);
  void CheckEnd(const State& state);
  void Fail(const char* what);
  unsigned char Make(State& state);
  [[noreturn]] void Stop();

  const std::vector<Program>* programs_ = nullptr;
  unsigned quiet_ = 0;
  std::unordered_map<std::uint64_t, double> paths_;
  Totals totals_;
  std::string fault_;
  std::vector<Made> road_;

  // The step under way.
  State* state_ = nullptr;
  Thread* thread_ = nullptr;
  int choice_ = 0;
  int choices_ = 0;
  int replayed_ = 0;
  int yields_ = 0;
  bool made_ = false;
  bool running_ = false;
  bool starting_ = false;
  bool keepsAddresses_ = false;
  AtEnd atEnd_ = nullptr;
  unsigned char lastMade_ = 0;
  unsigned char deleting_ = 0;
  Made step_{};
  jmp_buf stopped_;
};

Explorer& TheExplorer();

// The explorer's cells from now on: the slots of the first identifiers, and every word.
void Watch(PendingRequests& requests);

// Runs one set of scenarios and prints what it saw, and the fault if there was one; false then.
bool Explore(const char* name, bool (*scenarios)());

}  // namespace interleavings

#endif  // TESTS_INTERLEAVINGS_EXPLORER_H_
