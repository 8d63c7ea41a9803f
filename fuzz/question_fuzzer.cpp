// Reading a question: text, type, class and trace against the oracle, byte for byte.
//
// Input: a byte for the space (0: the size that the service uses), then the question.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "dns_proxy_mac/proxy/dns_message.h"
#include "fuzz/input.h"
#include "fuzz/require.h"
#include "fuzz/trace_text.h"
#include "tests/support/question_oracle.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const std::size_t spaceByte = input.Byte();
  const std::size_t spaceSize = spaceByte == 0 ? kDomainTextSize : spaceByte;
  const fuzz::Bytes question = input.Rest();

  // Blocks of exactly their size: a sanitizer guards both ends.
  const std::unique_ptr<unsigned char[]> packet(new unsigned char[question.size()]);
  std::copy(question.begin(), question.end(), packet.get());
  const std::unique_ptr<char[]> space(new char[spaceSize]());
  constexpr unsigned short kUntouched = 0xBEEF;
  unsigned short type = kUntouched;
  unsigned short questionClass = kUntouched;

  fuzz::TraceText trace;
  ExtractDomain(packet.get(), static_cast<int>(question.size()), space.get(),
                static_cast<int>(spaceSize), type, questionClass);
  const support::TraceLines lines = trace.Stop();

  const support::ReadQuestion expected = support::OracleReads(question, spaceSize);
  fuzz::Require(std::string(space.get(), spaceSize) == expected.space, "the text and its space");
  fuzz::Require(type == expected.type.value_or(kUntouched), "the type");
  fuzz::Require(questionClass == expected.questionClass.value_or(kUntouched), "the class");
  fuzz::Require(std::equal(question.begin(), question.end(), packet.get()), "the input is kept");
  fuzz::RequireTrace(expected.trace, lines);
  return 0;
}
