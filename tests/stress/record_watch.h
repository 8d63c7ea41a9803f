// How many records exist: the test executable counts the blocks of a record's size, in its own
// operator new and delete or, with a sanitizer, in the hooks of that one's allocator. The record
// itself is the program's, unchanged.
#ifndef TESTS_STRESS_RECORD_WATCH_H_
#define TESTS_STRESS_RECORD_WATCH_H_

namespace stress {

// Since the process began. Any thread; exact while no other thread makes or frees records.
long RecordsMade();
long RecordsFreed();

inline long RecordsAlive() { return RecordsMade() - RecordsFreed(); }

}  // namespace stress

#endif  // TESTS_STRESS_RECORD_WATCH_H_
