// What the running host tells about itself, and how one asks it: who connects to its Unix socket is
// sent a JSON text and hung up on. Nothing is read from a client, and none can hold the host up.
#ifndef HOST_PARENT_STATUS_H_
#define HOST_PARENT_STATUS_H_

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "host/common/waiting.h"

// JSON from its parts.
std::string Quoted(const std::string& text);
std::string Seconds(Clock::duration time);
std::string Member(const std::string& name, const std::string& value);
std::string Object(const std::vector<std::string>& members);

// An array, and the object round everything: each item and each (name, value) in a line of its own,
// with the values in a column.
std::string Array(const std::vector<std::string>& items);
std::string Outermost(const std::vector<std::pair<std::string, std::string>>& members);

// The JSON text for people: without the punctuation round its texts and numbers.
std::string AsTable(const std::string& json);

// The socket at which the host tells it: a file that goes with this object.
class StatusListener {
 public:
  // Listens at `path`, unless that is empty. Throws Failure.
  explicit StatusListener(const std::string& path);
  ~StatusListener();

  StatusListener(const StatusListener&) = delete;
  StatusListener& operator=(const StatusListener&) = delete;

  // -1 when it does not listen.
  int fd() const { return fd_; }

  // Sends one client, if one is waiting, what `report` returns then.
  void Answer(const std::function<std::string()>& report) const;

 private:
  const std::string path_;
  const int fd_;
};

// Prints the status of the host at `path`, as a table or as JSON. Throws Failure if there is none.
void PrintStatus(const std::string& path, bool json);

#endif  // HOST_PARENT_STATUS_H_
