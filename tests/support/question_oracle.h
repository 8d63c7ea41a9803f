// What reading a question has to come to, worked out a second time and in another way.
#ifndef TESTS_SUPPORT_QUESTION_ORACLE_H_
#define TESTS_SUPPORT_QUESTION_ORACLE_H_

#include <cstddef>
#include <optional>
#include <string>

#include "tests/support/dns_message_builder.h"
#include "tests/support/trace_capture.h"

namespace support {

struct ReadQuestion {
  std::string space;  // the whole of the space for the text, zero bytes included
  std::optional<unsigned short> type;
  std::optional<unsigned short> questionClass;
  TraceLines trace;

  // The name as a C program reads it.
  std::string Name() const { return space.c_str(); }
};

// `question`: from the first length byte to the end of the datagram. `spaceSize`: at least 1.
ReadQuestion OracleReads(const Bytes& question, std::size_t spaceSize);

}  // namespace support

#endif  // TESTS_SUPPORT_QUESTION_ORACLE_H_
