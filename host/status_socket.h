// The Unix socket at which the running host tells its status, and the asking side.
//
// Who connects is sent the table, a zero byte and the JSON text, and is hung up on. Nothing is read
// from a client, and none can hold the host up.
#ifndef HOST_STATUS_SOCKET_H_
#define HOST_STATUS_SOCKET_H_

#include <string>

#include "host/status_report.h"

class StatusSocket {
 public:
  StatusSocket() = default;
  ~StatusSocket();

  StatusSocket(const StatusSocket&) = delete;
  StatusSocket& operator=(const StatusSocket&) = delete;

  // Listens at `path`, mode 0600, in place of a socket that nobody listens at any more. False, with
  // the reason in `error`, when another host answers there or the system refuses.
  bool Listen(const std::string& path, std::string& error);

  // -1 before Listen.
  int fd() const { return sock_; }

  // Answers one client.
  void Answer(const StatusReport& report) const;

 private:
  std::string path_;
  int sock_ = -1;
};

// Prints the status of the host at `path`, as a table or as JSON. An exit status.
int PrintStatus(const std::string& path, bool json);

#endif  // HOST_STATUS_SOCKET_H_
