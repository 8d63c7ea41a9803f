// Who may do what: the service ends up as an unprivileged user, the parent with what it takes to
// start it again.
#ifndef HOST_COMMON_RIGHTS_H_
#define HOST_COMMON_RIGHTS_H_

#include <sys/types.h>

#include <string>

// A user to run the service as.
struct User {
  std::string name;
  uid_t uid;
  gid_t gid;
};

// Looks up `name`; empty: nobody for root, else who runs this. Throws Failure for an unknown name,
// or for another user without being root.
User FindUser(const std::string& name);

// Parent: gives up, for good, what it does not need to start the service again. On Linux that
// leaves the rights to become `--user` and to end a child that has, and nothing that is run from
// here on can gain any. Elsewhere root stays root. Throws Failure.
void KeepParentRights();

// In the child, and for --check: becomes `user` and gives up every other right. Only while there is
// one thread: the system call that does it interrupts the waits of all others, and that would end
// the service's workers. Throws Failure.
void DropRights(const User& user);

#endif  // HOST_COMMON_RIGHTS_H_
