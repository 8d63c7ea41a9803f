// What the sanitizers are told in every test, whoever starts it.

// A HostTable frees its records in Clear alone, and the record of a name that is there already in
// no way: by design, so not a leak that a test has to answer for. The suppression names the one
// function that makes such records.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:HostTable::Add\n"; }

// The thread sanitizer, in the service's process and in the test's:
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
// thread, which may be using them: by design. Nor does it when it is called again, and its new
// sockets take the old numbers. These two calls alone are passed over, nothing else.
extern "C" const char* __tsan_default_suppressions();
extern "C" const char* __tsan_default_suppressions() { return "race_top:close\nrace_top:socket\n"; }
