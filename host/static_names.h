// The static names: from the command line and from hosts(5) files, in the form that the service
// finds them by.
#ifndef HOST_STATIC_NAMES_H_
#define HOST_STATIC_NAMES_H_

#include <cstddef>
#include <istream>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

class StaticNames {
 public:
  // Takes "NAME=ADDRESS". False, with the reason in `error`, if it is not that.
  bool AddMapping(const std::string& text, std::string& error);

  // Takes a hosts(5) file: an address and its names on each line, comments behind '#'. Lines with
  // an IPv6 address are counted and skipped. False, with file, line and reason in `error`, at the
  // first line that is neither.
  bool AddHostsFile(const std::string& path, std::string& error);
  bool AddHosts(std::istream& lines, const std::string& source, std::string& error);

  // (name, address), each name once: in lower case, without a trailing dot. Of a name that was
  // given more than once the first address wins, as in the service itself.
  const std::vector<std::pair<std::string, std::string>>& names() const { return names_; }

  // What was given more than once: a sentence each, saying which address wins.
  const std::vector<std::string>& duplicates() const { return duplicates_; }

  std::size_t ipv6Lines() const { return ipv6Lines_; }

 private:
  bool Add(std::string name, const std::string& address, const std::string& source,
           std::string& error);

  struct Entry {
    std::string address;
    std::string source;
  };

  std::vector<std::pair<std::string, std::string>> names_;
  std::unordered_map<std::string, Entry> first_;
  std::vector<std::string> duplicates_;
  std::size_t ipv6Lines_ = 0;
};

#endif  // HOST_STATIC_NAMES_H_
