#include "dns_proxy_mac/proxy/request_table.h"

RequestTable::RequestTable() { pthread_mutex_init(&mutexTable, nullptr); }

RequestTable::~RequestTable() { Clear(); }

void RequestTable::Add(DnsRequest* request) { mapRequests.Insert(request); }

void RequestTable::Add(std::unique_ptr<DnsRequest> request) {
  if (mapRequests.Insert(request.get())) {
    static_cast<void>(request.release());  // the table's now, and perhaps freed already
  }
}

bool RequestTable::Find(unsigned short id, Position& position) {
  position = mapRequests.find(id);
  return position != mapRequests.end();
}

void RequestTable::Delete(unsigned short id) {
  if (DnsRequest* const removed = mapRequests.Remove(id)) {
    mapRequests.Free(removed);
  }
}

void RequestTable::Delete(const Position& position) {
  if (mapRequests.Remove(position->first, position->second)) {
    mapRequests.Free(position->second);
  }
}

bool RequestTable::Delete(unsigned short id, DnsRequest& request) {
  DnsRequest* const removed = mapRequests.Remove(id);
  if (removed == nullptr) {
    return false;
  }
  request = *removed;
  mapRequests.Free(removed);
  return true;
}

bool RequestTable::Delete(unsigned short id, unsigned short& appQueryID, sockaddr& clientAddr) {
  DnsRequest* const removed = mapRequests.Remove(id);
  if (removed == nullptr) {
    return false;
  }
  appQueryID = removed->AppQueryID;
  clientAddr = removed->ClientAddr;
  mapRequests.Free(removed);
  return true;
}

void RequestTable::Clear() {
  for (const auto& [id, request] : mapRequests) {
    Delete(id);
  }
}

void init_lock() {}
