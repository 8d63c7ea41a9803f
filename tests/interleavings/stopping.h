// Included in front of the program's own files (compiler option -include): their atomic objects,
// allocations and frees of a record, and accesses to a record's position become steps of an
// Explorer. The files themselves stay as they are.
#ifndef TESTS_INTERLEAVINGS_STOPPING_H_
#define TESTS_INTERLEAVINGS_STOPPING_H_

// Every header that the files include, before any word of theirs is replaced.
#include <netinet/in.h>
#include <pthread.h>
#include <sys/socket.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

struct DnsRequest;

namespace interleavings {

enum class Access {
  kLoad,
  kStore,
  kExchange,
  kCompareExchange,
  kMake,
  kFree,
  kLook,
  kAdvance,
  kList,
  kSend
};

// One step on `cell`, or on the record that it is the number of. What the step reads: 0 for null
// or false, 1 for true, a record's number.
unsigned char Step(Access access, int cell, unsigned char expected, unsigned char desired);

// The thread waits for another one.
void Yield();

// Records as numbers from 1; 0 is null.
unsigned char NumberOf(const void* record);
DnsRequest* Record(unsigned char number);

inline unsigned char AsByte(bool value) { return value ? 1 : 0; }
inline unsigned char AsByte(DnsRequest* record) { return NumberOf(record); }
inline void FromByte(unsigned char byte, bool& value) { value = byte != 0; }
inline void FromByte(unsigned char byte, DnsRequest*& record) { record = Record(byte); }

// What the explorer is not told about, blocks of slots and the slots of other identifiers, is an
// ordinary object: no two threads of a scenario meet there.
template <typename T>
class Atomic {
 public:
  Atomic() = default;
  Atomic(T value) : value_(value) {}  // NOLINT(google-explicit-constructor): as std::atomic's

  T load(std::memory_order /*order*/ = std::memory_order_seq_cst) const {
    return cell_ < 0 ? value_ : Of(Step(Access::kLoad, cell_, 0, 0));
  }
  void store(T value, std::memory_order /*order*/ = std::memory_order_seq_cst) {
    cell_ < 0 ? void(value_ = value) : void(Step(Access::kStore, cell_, 0, Byte(value)));
  }
  T exchange(T value) {
    if (cell_ < 0) {
      return std::exchange(value_, value);
    }
    return Of(Step(Access::kExchange, cell_, 0, Byte(value)));
  }
  bool compare_exchange_strong(T& expected, T desired,
                               std::memory_order /*success*/ = std::memory_order_seq_cst,
                               std::memory_order /*failure*/ = std::memory_order_seq_cst) {
    const T was = expected;
    if (cell_ < 0) {
      expected = value_;
      value_ = expected == was ? desired : value_;
    } else {
      expected = Of(Step(Access::kCompareExchange, cell_, Byte(was), Byte(desired)));
    }
    return expected == was;
  }

  // From now on the value is the explorer's cell number `cell`.
  void Watch(int cell) { cell_ = cell; }

 private:
  static unsigned char Byte(T value) {
    if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, DnsRequest*>) {
      return AsByte(value);
    }
    return 0;
  }
  static T Of(unsigned char byte) {
    T value{};
    if constexpr (std::is_same_v<T, bool> || std::is_same_v<T, DnsRequest*>) {
      FromByte(byte, value);
    }
    return value;
  }

  T value_{};
  int cell_ = -1;
};

inline unsigned char LoadPosition(const unsigned char* position) {
  return Step(Access::kLook, NumberOf(position), 0, 0);
}
inline int LoadPosition(const int* descriptor) { return *descriptor; }
inline bool AdvancePosition(const unsigned char* position, unsigned char from, unsigned char to) {
  return Step(Access::kAdvance, NumberOf(position), from, to) == from;
}

}  // namespace interleavings

namespace std {  // NOLINT(cert-dcl58-cpp): where the files look for the words below
template <typename T>
using stopping_atomic = interleavings::Atomic<T>;
namespace stopping_thread {
inline void yield() { interleavings::Yield(); }
}  // namespace stopping_thread
}  // namespace std

#define atomic stopping_atomic
#define this_thread stopping_thread
#define __atomic_load_n(position, order) interleavings::LoadPosition(position)
#define __atomic_compare_exchange_n(position, expected, desired, weak, success, failure) \
  interleavings::AdvancePosition(position, *(expected), desired)

#endif  // TESTS_INTERLEAVINGS_STOPPING_H_
