// A report ends the service's process at once, which the test sees; _exit would pass it over. And
// what is written to and read from files orders nothing between threads: the trace, which both
// workers write, must not hide a race.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "halt_on_error=1:io_sync=0"; }
