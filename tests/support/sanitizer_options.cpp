// What the sanitizers are told in every test, whoever starts it.

// A HostTable frees its records in Clear alone, and the record of a name that is there already in
// no way: by design, so not a leak that a test has to answer for. The suppression names the one
// function that makes such records.
extern "C" const char* __lsan_default_suppressions();
extern "C" const char* __lsan_default_suppressions() { return "leak:HostTable::Add\n"; }
