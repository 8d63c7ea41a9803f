// The DNS messages that benchmarks send: plain questions and plain answers.
#ifndef BENCHMARKS_SUPPORT_MESSAGES_H_
#define BENCHMARKS_SUPPORT_MESSAGES_H_

#include <cstdint>
#include <string>
#include <vector>

namespace benchmarks {

using Message = std::vector<unsigned char>;

inline constexpr int kHeaderSize = 12;

// A name that the benchmarks' host maps hold, one that they do not, and one of a reverse look-up.
inline constexpr char kMappedName[] = "intranet.example.com";
inline constexpr char kMappedAddress[] = "192.0.2.2";
inline constexpr char kOtherName[] = "www.example.org";
inline constexpr char kReverseName[] = "4.3.2.1.in-addr.arpa";

// A recursive query of class IN for `name` (labels joined by dots), type A. `id` in wire order.
Message MakeQuery(const std::string& name, std::uint16_t id);

// Turns the query in `message`, `length` bytes with room for 16 more, into the response that
// carries one A record, 192.0.2.7, and returns the response's length.
int TurnIntoResponse(unsigned char* message, int length);

// The same response to `query`.
Message MakeResponse(const Message& query);

}  // namespace benchmarks

#endif  // BENCHMARKS_SUPPORT_MESSAGES_H_
