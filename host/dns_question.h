// The small questions that the parent asks: the service to see that it lives, and each server.
#ifndef HOST_DNS_QUESTION_H_
#define HOST_DNS_QUESTION_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

inline constexpr std::uint16_t kTypeNs = 2;
inline constexpr std::uint16_t kTypePtr = 12;

// A query (RFC 1035, section 4.1) for `name` (dots between labels; empty: the root) with recursion
// desired and no EDNS. `type` and `id` in machine order.
std::vector<unsigned char> MakeQuestion(std::uint16_t id, const std::string& name,
                                        std::uint16_t type);

// True if the `size` bytes at `message` are a response; its identifier in `id`, machine order.
bool ReadResponse(const unsigned char* message, std::size_t size, std::uint16_t& id);

#endif  // HOST_DNS_QUESTION_H_
