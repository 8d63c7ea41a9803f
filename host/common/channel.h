// The channel between parent and child: a pair of Unix sockets along which descriptors go. What
// lies in its queue stays open, whoever has closed it elsewhere.
#ifndef HOST_COMMON_CHANNEL_H_
#define HOST_COMMON_CHANNEL_H_

// Sends `fd`. Does nothing when nobody is at the other end. Does not wait.
void SendDescriptor(int channel, int fd);

// Puts each descriptor that comes in the place of `fd`, at once for all threads that use it.
// Returns when the other end has gone.
void TakeDescriptors(int channel, int fd);

#endif  // HOST_COMMON_CHANNEL_H_
