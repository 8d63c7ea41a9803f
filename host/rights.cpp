#include "host/rights.h"

#include <grp.h>
#include <pwd.h>
#include <unistd.h>

#if defined(__linux__)
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstdint>
#endif

namespace {

#if defined(__linux__)
constexpr std::uint64_t Bit(int capability) { return std::uint64_t{1} << capability; }

// The calling thread keeps those of `wanted` that it has.
bool KeepCapabilities(std::uint64_t wanted) {
  __user_cap_header_struct header = {_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  if (syscall(SYS_capget, &header, data) != 0) {
    return false;
  }
  for (int word = 0; word < 2; ++word) {
    data[word].permitted &= static_cast<std::uint32_t>(wanted >> (32 * word));
    data[word].effective = data[word].permitted;
    data[word].inheritable = 0;
  }
  return syscall(SYS_capset, &header, data) == 0;
}
#endif

}  // namespace

bool FindUser(const std::string& name, User& user, std::string& error) {
  const bool root = geteuid() == 0;
  if (name.empty() && !root) {
    user = {"", geteuid(), getegid()};
    return true;
  }
  const std::string wanted = name.empty() ? "nobody" : name;
  const passwd* const entry = getpwnam(wanted.c_str());
  if (entry == nullptr) {
    error = "--user " + wanted + ": there is no such user";
    return false;
  }
  if (!root && entry->pw_uid != geteuid()) {
    error = "--user " + wanted + ": only root can run the service as somebody else";
    return false;
  }
  user = {wanted, entry->pw_uid, entry->pw_gid};
  return true;
}

bool KeepParentRights() {
#if defined(__linux__)
  const std::uint64_t needed =
      Bit(CAP_NET_BIND_SERVICE) | Bit(CAP_SETUID) | Bit(CAP_SETGID) | Bit(CAP_KILL);
  for (int capability = 0; prctl(PR_CAPBSET_READ, capability, 0, 0, 0) >= 0; ++capability) {
    if ((Bit(capability) & needed) == 0) {
      prctl(PR_CAPBSET_DROP, capability, 0, 0, 0);  // refused without CAP_SETPCAP: nothing to gain
    }
  }
  prctl(PR_CAP_AMBIENT, PR_CAP_AMBIENT_CLEAR_ALL, 0, 0, 0);
  return KeepCapabilities(needed) && prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0;
#else
  return true;
#endif
}

const char* DropRights(const User& user) {
  if (user.uid != geteuid()) {
    if (setgroups(1, &user.gid) != 0) {
      return "setgroups";
    }
    if (setgid(user.gid) != 0) {
      return "setgid";
    }
    if (setuid(user.uid) != 0) {
      return "setuid";
    }
  }
#if defined(__linux__)
  // A change of user away from root has emptied them; the same user may have been given some.
  if (!KeepCapabilities(0)) {
    return "capset";
  }
#endif
  return nullptr;
}
