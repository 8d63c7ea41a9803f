// The program's trace of one run, as lines.
#ifndef FUZZ_TRACE_TEXT_H_
#define FUZZ_TRACE_TEXT_H_

#include <cstddef>
#include <cstdio>

#include "tests/support/trace_capture.h"

namespace fuzz {

// While it lives, standard output is memory: no system call, so that fuzzing stays fast.
class TraceText {
 public:
  TraceText();
  ~TraceText();

  TraceText(const TraceText&) = delete;
  TraceText& operator=(const TraceText&) = delete;

  // Ends it. What was written, up to the first zero byte of each line's arguments as printf does.
  support::TraceLines Stop();

 private:
  void GiveBack();

  char* text_ = nullptr;
  std::size_t size_ = 0;
  std::FILE* stream_;
  std::FILE* standardOutput_;
};

// Requires that `actual` is `expected`, in which "(line:%d)" stands for any line number.
void RequireTrace(const support::TraceLines& expected, const support::TraceLines& actual);

}  // namespace fuzz

#endif  // FUZZ_TRACE_TEXT_H_
