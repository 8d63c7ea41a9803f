#include "tests/support/question_oracle.h"

namespace support {

namespace {

constexpr char kPrefix[] = "func: ExtractDomain(line:%d)ExtractDomain";

// The big-endian number at `offset`, if both of its bytes are there.
std::optional<unsigned short> NumberAt(const Bytes& bytes, std::size_t offset) {
  if (offset + 2 > bytes.size()) {
    return std::nullopt;
  }
  return static_cast<unsigned short>(bytes[offset] * 256 + bytes[offset + 1]);
}

}  // namespace

// A text that grows label by label, as if there were no buffers; the space is made of it at last.
ReadQuestion OracleReads(const Bytes& question, std::size_t spaceSize) {
  ReadQuestion read;
  std::string text;
  std::size_t at = 0;
  std::string complaint;
  while (complaint.empty() && at < question.size() && question[at] != 0) {
    const std::size_t announced = question[at];
    if (announced > 127) {
      complaint = " invalid value:-" + std::to_string(256 - announced);
    } else if (text.size() + announced > spaceSize) {
      complaint = ": buffer overflow when parsing qname, chunk_len: " + std::to_string(announced);
    } else {
      for (std::size_t i = at + 1; i <= at + announced; ++i) {
        text.push_back(i < question.size() ? static_cast<char>(question[i]) : '\0');
      }
      if (text.size() == spaceSize) {
        complaint =
            ": buffer overflow when add suffix dot, chunk_len: " + std::to_string(announced);
        text.pop_back();  // the text has to end inside its space
      } else {
        text.push_back('.');
        at += announced + 1;
      }
    }
  }
  if (!complaint.empty()) {
    read.trace.push_back(kPrefix + complaint);
  }
  const bool full = complaint.find("suffix") != std::string::npos;
  if (!full && !text.empty() && text.back() == '.') {
    text.pop_back();
  }
  read.space = text;
  read.space.resize(spaceSize, '\0');
  read.type = NumberAt(question, at + 1);
  read.questionClass = NumberAt(question, at + 3);
  return read;
}

}  // namespace support
