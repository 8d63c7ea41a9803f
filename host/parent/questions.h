// The small questions that the parent asks: the service to see that it lives, and each server.
#ifndef HOST_PARENT_QUESTIONS_H_
#define HOST_PARENT_QUESTIONS_H_

#include <netinet/in.h>

#include <cstdint>
#include <vector>

// The query (RFC 1035, section 4.1) for the servers of the root: every server knows something to
// say about them. With recursion desired and no EDNS; `id` in machine order.
std::vector<unsigned char> MakeQuestion(std::uint16_t id);

// A UDP socket to ask from. The caller closes it. Throws Failure.
int OpenQuestionSocket();

// The identifier that it was made with.
std::uint16_t QuestionId(const std::vector<unsigned char>& question);

// Sends a question to port 53 of `server`. One that cannot be sent is one without an answer.
void Ask(int sock, in_addr_t server, const std::vector<unsigned char>& question);

struct Response {
  in_addr_t server;  // network order; it came from port 53 there
  std::uint16_t id;  // machine order
};

// The responses among the next datagrams that have arrived. Does not wait, and takes no more than
// 64 of them: anybody on this machine can send some.
std::vector<Response> ReceiveResponses(int sock);

#endif  // HOST_PARENT_QUESTIONS_H_
