#include "dns_proxy_mac/proxy/host_table.h"

#include <arpa/inet.h>

#include <cctype>

void HostTable::Add(char* name, const char* address) {
  auto* const record = new HostRespData();
  record->Name = htons(0xC00C);
  record->Type = htons(1);
  record->Class = htons(1);
  record->TimeToLive = htonl(86400);
  record->DataLength = htons(4);
  record->Address = inet_addr(address);

  // The first mapping of a name wins. The record of a later one is lost for the rest of the
  // process: by design, the table frees nothing but in Clear, and only the hosting process's list
  // can grow it.
  records_.emplace(name, record);
}

bool HostTable::Find(std::string name, HostRespData*& record) {
  for (char& character : name) {
    character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
  }
  const auto entry = records_.find(name);
  if (entry == records_.end()) {
    return false;
  }
  record = entry->second;
  return true;
}

void HostTable::Clear() {
  while (!records_.empty()) {
    const auto first = records_.begin();
    delete first->second;
    records_.erase(first);
  }
}
