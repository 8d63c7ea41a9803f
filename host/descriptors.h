// Which descriptors this process has open.
#ifndef HOST_DESCRIPTORS_H_
#define HOST_DESCRIPTORS_H_

#include <initializer_list>
#include <utility>

// Opens /dev/null for those of descriptors 0, 1 and 2 that are closed: no socket may get one of
// these numbers.
void OpenStandardDescriptors();

// Moves each (from, to) and closes every other descriptor from 3 on, so that what is opened next
// has a low number: the service waits with select, which takes none of 1024 and above. A `from` of
// -1 is left out. The `to` lie between 3 and `firstFree`.
void KeepDescriptors(std::initializer_list<std::pair<int, int>> moves, int firstFree);

#endif  // HOST_DESCRIPTORS_H_
