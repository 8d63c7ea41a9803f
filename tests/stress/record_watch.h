// How many records exist: the test executable's own operator new and delete count the blocks of a
// record's size. The record itself is the program's, unchanged.
#ifndef TESTS_STRESS_RECORD_WATCH_H_
#define TESTS_STRESS_RECORD_WATCH_H_

namespace stress {

// Since the process began. Any thread; exact while no other thread makes or frees records.
long RecordsMade();
long RecordsFreed();

inline long RecordsAlive() { return RecordsMade() - RecordsFreed(); }

}  // namespace stress

#endif  // TESTS_STRESS_RECORD_WATCH_H_
