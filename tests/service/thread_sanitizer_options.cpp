// What the thread sanitizer is told, for the service's process and the test's.
//
//   halt_on_error         a report ends the process at once, so that the test sees it
//   io_sync               what goes through files and sockets orders nothing between threads: the
//                         trace, which both workers write, must not hide a race
//   report_thread_leaks   the query thread is never waited for, by design
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() {
  return "halt_on_error=1:io_sync=0:report_thread_leaks=0";
}

// StartDnsSrv closes the sockets when the answer thread has ended and does not wait for the query
// thread, which may be using them: by design. The close alone is passed over, nothing else.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() { return "race_top:close\n"; }
