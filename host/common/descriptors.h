// Which descriptors this process has open, and how they go from one process to another: along a
// channel, a pair of Unix sockets. What lies in its queue stays open, whoever has closed it
// elsewhere.
#ifndef HOST_COMMON_DESCRIPTORS_H_
#define HOST_COMMON_DESCRIPTORS_H_

#include <initializer_list>

// Opens /dev/null for those of descriptors 0, 1 and 2 that are closed (no socket may get one of
// these numbers) and closes all others below `end` that are not `kept`. What is opened next has a
// low number then: the service waits with select, which takes none of 1024 and above.
void KeepDescriptors(int end, std::initializer_list<int> kept = {});

// Opens those of descriptors 1 and 2 that are terminals once more, not blocking: unlike a pipe a
// terminal that is reported writable may block, and the shell's own descriptor stays as it is.
void UnblockTerminals();

// Sends `fd`. Does nothing when nobody is at the other end. Does not wait.
void SendDescriptor(int channel, int fd);

// Puts each descriptor that comes in the place of `fd`, at once for all threads that use it.
// Returns when the other end has gone.
void TakeDescriptors(int channel, int fd);

#endif  // HOST_COMMON_DESCRIPTORS_H_
