// Reads and writes of files and sockets order nothing between threads here: the trace, which both
// workers write, and the test's own sockets must not hide a race.
extern "C" const char* __tsan_default_options();
extern "C" const char* __tsan_default_options() { return "io_sync=0"; }
