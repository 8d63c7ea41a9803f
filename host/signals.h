// Signals as something to poll for.
#ifndef HOST_SIGNALS_H_
#define HOST_SIGNALS_H_

#include <string>

// One object at a time.
class Signals {
 public:
  // Catches SIGTERM, SIGINT, SIGHUP and SIGCHLD, ignores SIGPIPE, and lets them all through,
  // whatever was blocked before.
  Signals();

  // -1 if the system refused.
  int fd() const { return ends_[0]; }

  // True if `signal` has come since the last call for it.
  bool Take(int signal);

 private:
  int ends_[2] = {-1, -1};  // a pipe: the handler writes the number, the loop reads it
  std::string come_;
};

#endif  // HOST_SIGNALS_H_
