// The static names: from the command line and from hosts(5) files, in the form that the service
// finds them by.
#ifndef HOST_PARENT_STATIC_NAMES_H_
#define HOST_PARENT_STATIC_NAMES_H_

#include <cstddef>
#include <map>
#include <string>
#include <vector>

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

  // Takes one name. Throws Failure if it cannot be a static name.
  void Add(std::string name, const Entry& entry);

  // By name: in lower case, without a trailing dot. Of a name that was given more than once the
  // first address wins, as in the service itself.
  std::map<std::string, Entry> names;

  // What was given more than once: a sentence each, saying which address wins.
  std::vector<std::string> duplicates;

  std::size_t ipv6Lines = 0;
};

#endif  // HOST_PARENT_STATIC_NAMES_H_
