#include "host/static_names.h"

#include <arpa/inet.h>

#include <fstream>
#include <sstream>
#include <string_view>

namespace {

constexpr std::size_t kMaxLabel = 63;
constexpr std::size_t kMaxName = 253;

char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsNameCharacter(char c) {
  return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
}

bool IsIpv4(const std::string& text) {
  in_addr address;
  return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// Why `name`, folded and without its trailing dot, cannot be a static name; null if it can.
const char* NameFault(const std::string& name) {
  if (name.empty()) {
    return "the name is empty";
  }
  if (name.size() > kMaxName) {
    return "the name is longer than 253 characters";
  }
  std::size_t label = 0;
  for (const char c : name + '.') {
    if (c == '.') {
      if (label == 0 || label > kMaxLabel) {
        return "a label of the name is empty or longer than 63 characters";
      }
      label = 0;
    } else if (!IsNameCharacter(c)) {
      return "the name has a character other than letters, digits, '-', '_' and '.'";
    } else {
      ++label;
    }
  }
  if (name.find(".in-addr.arpa") != std::string::npos) {
    return "reverse look-ups are answered 'no such name' before static names are looked at";
  }
  return nullptr;
}

}  // namespace

bool StaticNames::Add(std::string name, const std::string& address, const std::string& source,
                      std::string& error) {
  const std::string given = name;
  for (char& c : name) {
    c = LowerAscii(c);
  }
  if (name.size() > 1 && name.back() == '.') {
    name.pop_back();
  }
  if (const char* const fault = NameFault(name)) {
    error = source + ": '" + given + "': " + fault;
    return false;
  }
  const auto [entry, added] = first_.emplace(name, Entry{address, source});
  if (added) {
    names_.emplace_back(name, address);
  } else {
    duplicates_.push_back(name + ": " + entry->second.address + " (" + entry->second.source +
                          ") wins over " + address + " (" + source + ")");
  }
  return true;
}

bool StaticNames::AddMapping(const std::string& text, std::string& error) {
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    error = "--map " + text + ": not NAME=ADDRESS";
    return false;
  }
  const std::string address = text.substr(equals + 1);
  if (!IsIpv4(address)) {
    error = "--map " + text + ": '" + address + "' is not an IPv4 address";
    return false;
  }
  return Add(text.substr(0, equals), address, "--map " + text, error);
}

bool StaticNames::AddHostsFile(const std::string& path, std::string& error) {
  std::ifstream file(path);
  if (!file) {
    error = path + ": cannot be read";
    return false;
  }
  return AddHosts(file, path, error);
}

bool StaticNames::AddHosts(std::istream& lines, const std::string& source, std::string& error) {
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    std::istringstream words(line.substr(0, line.find('#')));
    const std::string where = source + ":" + std::to_string(number);
    std::string address;
    if (!(words >> address)) {
      continue;
    }
    if (address.find(':') != std::string::npos) {
      ++ipv6Lines_;
      continue;
    }
    if (!IsIpv4(address)) {
      error = where + ": '" + address + "' is not an IPv4 address";
      return false;
    }
    std::string name;
    if (!(words >> name)) {
      error = where + ": no name behind " + address;
      return false;
    }
    do {
      if (!Add(name, address, where, error)) {
        return false;
      }
    } while (words >> name);
  }
  if (lines.bad()) {
    error = source + ": cannot be read";
    return false;
  }
  return true;
}
