#include "host/parent/static_names.h"

#include <arpa/inet.h>

#include <algorithm>
#include <sstream>

#include "host/common/failure.h"

namespace {

constexpr std::size_t kMaxLabel = 63;
constexpr std::size_t kMaxName = 253;
constexpr char kNameCharacters[] = "abcdefghijklmnopqrstuvwxyz0123456789-_.";

char LowerAscii(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool IsIpv4(const std::string& text) {
  in_addr address;
  return inet_pton(AF_INET, text.c_str(), &address) == 1;
}

// With or without an interface behind it: "fe80::1%lo0".
bool IsIpv6(const std::string& text) {
  in6_addr address;
  return inet_pton(AF_INET6, text.substr(0, text.find('%')).c_str(), &address) == 1;
}

// Why `name`, folded and without its trailing dot, cannot be a static name; null if it can.
const char* NameFault(const std::string& name) {
  if (name.find_first_not_of(kNameCharacters) != std::string::npos) {
    return "the name has a character other than letters, digits, '-', '_' and '.'";
  }
  std::istringstream labels(name + '.');
  for (std::string label; std::getline(labels, label, '.');) {
    if (label.empty() || label.size() > kMaxLabel || name.size() > kMaxName) {
      return "a label of the name is empty or longer than 63 characters, or the name than 253";
    }
  }
  if (name.find(".in-addr.arpa") != std::string::npos) {
    return "reverse look-ups are answered 'no such name' before static names are looked at";
  }
  return nullptr;
}

}  // namespace

void StaticNames::Add(std::string name, const Entry& entry) {
  const std::string given = name;
  std::transform(name.begin(), name.end(), name.begin(), LowerAscii);
  if (name.size() > 1 && name.back() == '.') {
    name.pop_back();
  }
  if (const char* const fault = NameFault(name)) {
    throw Failure{kExitBadInput, entry.source + ": '" + given + "': " + fault};
  }
  const auto [first, added] = names.emplace(name, entry);
  if (!added) {
    duplicates.push_back(name + ": " + first->second.address + " (" + first->second.source +
                         ") wins over " + entry.address + " (" + entry.source + ")");
  }
}

void StaticNames::AddMapping(const std::string& text) {
  const std::string source = "--map " + text;
  const std::size_t equals = text.find('=');
  if (equals == std::string::npos) {
    throw Failure{kExitBadInput, source + ": not NAME=ADDRESS"};
  }
  const std::string address = text.substr(equals + 1);
  if (!IsIpv4(address)) {
    throw Failure{kExitBadInput, source + ": '" + address + "' is not an IPv4 address"};
  }
  Add(text.substr(0, equals), {address, source});
}

void StaticNames::AddHosts(const std::string& text, const std::string& file) {
  std::istringstream lines(text);
  std::string line;
  for (int number = 1; std::getline(lines, line); ++number) {
    std::istringstream words(line.substr(0, line.find('#')));
    const std::string where = file + ":" + std::to_string(number);
    std::string address;
    std::string name;
    if (!(words >> address)) {
      continue;
    }
    if (IsIpv6(address)) {
      ++ipv6Lines;
      continue;
    }
    if (!IsIpv4(address)) {
      throw Failure{kExitBadInput, where + ": '" + address + "' is not an IPv4 address"};
    }
    if (!(words >> name)) {
      throw Failure{kExitBadInput, where + ": no name behind " + address};
    }
    do {
      Add(name, {address, where});
    } while (words >> name);
  }
}
