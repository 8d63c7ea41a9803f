// What the service is to be started with, as the options and the files say now: static names and
// upstream servers, in the form that the service takes them in.
#ifndef HOST_PARENT_CONFIGURATION_H_
#define HOST_PARENT_CONFIGURATION_H_

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/options.h"

struct Configuration {
  std::vector<std::string> servers;                        // StartDnsSrv's first argument
  std::vector<std::pair<std::string, std::string>> names;  // and its second
};

// Each reads its files anew and validates them; says in the log what was taken and what was left
// out. Throws Failure. The machine's own servers, where no others are given, are read by
// get_localdns_dnsproxy, which traces on standard output.
std::vector<std::string> LoadServers(const Options& options);
std::vector<std::pair<std::string, std::string>> LoadNames(const Options& options);

// What /etc/resolv.conf holds now, to see whether it has changed; empty if it cannot be read.
std::string ReadResolvConf();

// What the regular file at `path` holds; nothing if there is none, or it cannot be read to its end.
std::optional<std::string> ReadFile(const std::string& path);

struct StaticNames {
  // An address and where it was given.
  struct Entry {
    std::string address;
    std::string source;
  };

  // Takes "NAME=ADDRESS". Throws Failure if it is not that.
  void AddMapping(const std::string& text);

  // Takes the text of the hosts(5) file `file`: an address and its names on each line, comments
  // behind '#'. Lines with an IPv6 address are counted and skipped. Throws Failure, with file, line
  // and reason, at the first line that is neither.
  void AddHosts(const std::string& text, const std::string& file);

  // Takes one name. Throws Failure if it cannot be a static name, or the address is not IPv4.
  void Add(std::string name, const Entry& entry);

  // By name: in lower case, without a trailing dot. Of a name that was given more than once the
  // first address wins, as in the service itself.
  std::map<std::string, Entry> names;

  // What was given more than once: a sentence each, saying which address wins.
  std::vector<std::string> duplicates;

  std::size_t ipv6Lines = 0;
};

// Why `text` cannot be a --server; null if it can. Loopback addresses can, except the proxy's own.
const char* ServerFault(const std::string& text);

struct LocalUpstreams {
  std::vector<std::string> taken;    // dotted decimal, in the file's order
  std::vector<std::string> dropped;  // "127.0.0.53 (this machine)"
};

// Which of `values`, as get_localdns_dnsproxy has read them from `resolvConf`, can serve: cut at
// the first blank, IPv4, each once, not from a comment, and not on this machine (a resolver here
// may ask the proxy, which would go round in circles).
LocalUpstreams ChooseUpstreams(const std::vector<std::string>& values,
                               const std::string& resolvConf);

#endif  // HOST_PARENT_CONFIGURATION_H_
