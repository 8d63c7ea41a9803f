// What the running host tells about itself: who connects to its Unix socket is sent a JSON text and
// hung up on. Nothing is read from a client, and none can hold the host up. Supervisor::Report,
// which makes the text, stands in status.cpp too.
#ifndef HOST_PARENT_STATUS_H_
#define HOST_PARENT_STATUS_H_

#include <functional>
#include <string>

// The socket at which the host tells it: a file that goes with this object.
class StatusListener {
 public:
  // Listens at `path`, unless that is empty. What goes wrong is a Failure that is thrown if the
  // place was `asked` for, and a line of the log if it is the default, whose folder is made.
  StatusListener(const std::string& path, bool asked);
  ~StatusListener();

  StatusListener(const StatusListener&) = delete;
  StatusListener& operator=(const StatusListener&) = delete;

  // -1 when it does not listen.
  int fd() const { return fd_; }

  // Sends one client, if one is waiting, what `report` returns then.
  void Answer(const std::function<std::string()>& report) const;

 private:
  const std::string path_;
  const bool asked_;
  const int fd_;
};

#endif  // HOST_PARENT_STATUS_H_
