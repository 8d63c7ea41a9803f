// Tells the service manager how far this process is: systemd's protocol, a datagram to the Unix
// socket that the environment variable NOTIFY_SOCKET names.
#ifndef HOST_NOTIFY_H_
#define HOST_NOTIFY_H_

#include <string>

// "READY=1", "STOPPING=1", "STATUS=...". Does nothing when nobody wants to know. Does not wait.
void NotifyManager(const std::string& state);

#endif  // HOST_NOTIFY_H_
