#include "host/parent/questions.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include "host/common/port.h"

namespace {

TEST(DnsQuestion, IsTheseBytes) {
  const std::vector<unsigned char> expected = {
      0x12, 0x34,                    // identifier
      0x01, 0x00,                    // recursion desired
      0,    1,    0, 0, 0, 0, 0, 0,  // one question
      0,                             // the root
      0,    2,                       // NS
      0,    1,                       // Internet
  };
  EXPECT_EQ(MakeQuestion(0x1234), expected);
  EXPECT_EQ(QuestionId(expected), 0x1234);
}

// A server of the test's own, on port 53 of an address of its own, and who asks it.
class QuestionTest : public ::testing::Test {
 protected:
  QuestionTest() : server_(socket(AF_INET, SOCK_DGRAM, 0)) {}
  ~QuestionTest() override {
    close(server_);
    close(questions_);
  }

  // False where the test has no right to port 53.
  bool Bind(std::uint16_t port) {
    sockaddr_in address = DnsAddress(kServer);
    address.sin_port = htons(port);
    return bind(server_, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
  }

  // Sends `message` to the asking socket, which has a port from its first question on.
  void Answer(const std::vector<unsigned char>& message) {
    sockaddr_in asker = DnsAddress(htonl(INADDR_LOOPBACK));
    socklen_t length = sizeof(asker);
    ASSERT_EQ(getsockname(questions_, reinterpret_cast<sockaddr*>(&asker), &length), 0);
    asker.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(sendto(server_, message.data(), message.size(), 0,
                     reinterpret_cast<const sockaddr*>(&asker), sizeof(asker)),
              static_cast<ssize_t>(message.size()));
  }

  const in_addr_t kServer = htonl(0x7F000809);  // 127.0.8.9
  int server_;
  int questions_ = OpenQuestionSocket();
};

TEST_F(QuestionTest, ResponseNeedsAHeaderAndTheResponseBit) {
  if (!Bind(kDnsPort)) {
    GTEST_SKIP() << "no right to port 53";
  }
  Ask(questions_, kServer, MakeQuestion(0x1234));
  std::vector<unsigned char> message(12);
  message[0] = 0x12;
  message[1] = 0x34;
  Answer(message);  // no response bit
  message[2] = 0x80;
  Answer({message.begin(), message.end() - 1});
  Answer({});
  Answer(message);
  const std::vector<Response> responses = ReceiveResponses(questions_);
  ASSERT_EQ(responses.size(), 1u);
  EXPECT_EQ(responses[0].id, 0x1234);
  EXPECT_EQ(responses[0].server, kServer);
}

TEST_F(QuestionTest, ResponseFromAnotherPortIsNone) {
  ASSERT_TRUE(Bind(0));
  Ask(questions_, kServer, MakeQuestion(1));
  std::vector<unsigned char> message(12);
  message[2] = 0x80;
  Answer(message);
  EXPECT_TRUE(ReceiveResponses(questions_).empty());
}

TEST_F(QuestionTest, FloodOfDatagramsIsTakenInParts) {
  if (!Bind(kDnsPort)) {
    GTEST_SKIP() << "no right to port 53";
  }
  Ask(questions_, kServer, MakeQuestion(1));
  std::vector<unsigned char> message(12);
  for (int i = 0; i < 65; ++i) {
    message[2] = i < 64 ? 0 : 0x80;
    Answer(message);
  }
  EXPECT_TRUE(ReceiveResponses(questions_).empty());
  EXPECT_EQ(ReceiveResponses(questions_).size(), 1u);
}

}  // namespace
