#include "host/common/rights.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdint>

#include "host/common/log.h"

#if defined(__linux__)
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

namespace {

#if defined(__linux__)
constexpr std::uint32_t kParentRights = 1U << CAP_SETUID | 1U << CAP_SETGID | 1U << CAP_KILL;

// Of the capabilities that this process has, all below 32, it keeps those in `wanted`, and no
// program that it runs gets any more.
bool KeepCapabilities(std::uint32_t wanted) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct held[2] = {};
  if (syscall(SYS_capget, &header, held) != 0) {
    return false;
  }
  const std::uint32_t kept = held[0].permitted & wanted;
  const __user_cap_data_struct data[2] = {{kept, kept, 0}, {0, 0, 0}};
  return syscall(SYS_capset, &header, data) == 0 && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
}
#else
constexpr std::uint32_t kParentRights = 0;
bool KeepCapabilities(std::uint32_t /*wanted*/) { return true; }  // there are none
#endif

}  // namespace

User FindUser(const std::string& name) {
  const bool root = geteuid() == 0;
  if (name.empty() && !root) {
    return {"", geteuid(), getegid()};
  }
  const std::string wanted = name.empty() ? "nobody" : name;
  const passwd* const entry = getpwnam(wanted.c_str());
  if (entry == nullptr || (!root && entry->pw_uid != geteuid())) {
    throw Failure{kExitBadInput,
                  "--user " + wanted +
                      (entry == nullptr ? ": there is no such user"
                                        : ": only root can run the service as another")};
  }
  return {wanted, entry->pw_uid, entry->pw_gid};
}

void KeepParentRights() {
  if (!KeepCapabilities(kParentRights)) {
    throw SystemFailure("rights cannot be given up");
  }
}

void DropRights(const User& user) {
  // Root that stays root gives up its further groups where it can: not in every user namespace.
  const bool changed = geteuid() != 0 || ((setgroups(1, &user.gid) == 0 || user.uid == 0) &&
                                          setgid(user.gid) == 0 && setuid(user.uid) == 0);
  // A change of user away from root has emptied the capabilities; the same user may have some.
  if (!changed || !KeepCapabilities(0)) {
    throw SystemFailure("cannot run as '" + user.name + "' (--user chooses another)", kExitNoRight);
  }
}
