// Which descriptors this process has open.
#ifndef HOST_DESCRIPTORS_H_
#define HOST_DESCRIPTORS_H_

// Opens /dev/null for those of descriptors 0, 1 and 2 that are closed (no socket may get one of
// these numbers) and closes all others below `end`, except the two that are given (-1: none). What
// is opened next has a low number then: the service waits with select, which takes none of 1024 and
// above.
void KeepDescriptors(int end, int first = -1, int second = -1);

#endif  // HOST_DESCRIPTORS_H_
