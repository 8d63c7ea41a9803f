// Lines for a reader that may be slow, stuck or gone.
#ifndef HOST_COMMON_LINE_WRITER_H_
#define HOST_COMMON_LINE_WRITER_H_

#include <string>
#include <string_view>

// Writes to a descriptor that does not change, below 1024. One thread at a time.
class LineWriter {
 public:
  // Writes `lines` without waiting: all of them or, where false is returned, nothing. What a pipe
  // takes a part of is finished by the next calls, which write nothing else before that.
  bool Write(int fd, std::string_view lines);

 private:
  std::string rest_;  // of the lines that a part of has been written
};

#endif  // HOST_COMMON_LINE_WRITER_H_
