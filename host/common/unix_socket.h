// Unix sockets that have a path.
#ifndef HOST_COMMON_UNIX_SOCKET_H_
#define HOST_COMMON_UNIX_SOCKET_H_

#include <string>

// A socket of `type` (SOCK_STREAM, SOCK_DGRAM) that is connected to `path` and does not block. The
// caller closes it. -1 and errno if nobody is there, or nobody accepts.
int ConnectUnix(const std::string& path, int type);

// A stream socket that listens at `path`, mode 0600, in place of one that nobody listens at any
// more. Throws Failure when another process answers there or the system refuses.
int ListenUnix(const std::string& path);

// Tells the service manager how far this process is ("READY=1", "STOPPING=1"): systemd's protocol,
// a datagram to the socket that the environment variable NOTIFY_SOCKET names. Does nothing when
// nobody wants to know. Does not wait.
void NotifyManager(const std::string& state);

#endif  // HOST_COMMON_UNIX_SOCKET_H_
