// The table of pending requests: who owns a record, who may touch it, on which thread.
//
//   field or object           query thread                 answer thread
//   a record before Add       makes and fills it           cannot see it
//   its fields after Add      reads                        reads
//   CurrentDNSMethodIndex     reads, advances (atomic)     reads, advances (atomic)
//   its slot in mapRequests   stores, empties (atomic)     empties (atomic)
//   mutexTable                never                        never
//
// The slot publishes the record: what was written before Add is seen by who finds it. A record that
// is found inside a PendingRequests::Pass stays alive until that worker finds or deletes another
// one or its pass ends, whoever removes it meanwhile; how, pending_requests.h says.
//
// A record lives from Add to the Delete that removes it. No timer removes one: a request whose
// server stays silent waits until the process ends. There is one record an identifier, so at the
// most 65,536, each of sizeof(DnsRequest) bytes, its name and its method list.
#ifndef DNS_PROXY_MAC_PROXY_REQUEST_TABLE_H_
#define DNS_PROXY_MAC_PROXY_REQUEST_TABLE_H_

#include <pthread.h>

#include <memory>

#include "dns_proxy_mac/proxy/dns_request.h"
#include "dns_proxy_mac/proxy/pending_requests.h"

class RequestTable {
 public:
  using Position = PendingRequests::iterator;

  RequestTable();

  // Clears the table. The mutex is not destroyed.
  ~RequestTable();

  RequestTable(const RequestTable&) = delete;
  RequestTable& operator=(const RequestTable&) = delete;

  // Stores `request` under its QueryID, and owns it from then on. When the identifier is taken the
  // older record stays as it is and `request` remains the caller's; which of the two happened is
  // not reported.
  void Add(DnsRequest* request);

  // The same for a caller that gives its record away: one that is refused is freed.
  void Add(std::unique_ptr<DnsRequest> request);

  // Sets `position` to the record under `id`, or to mapRequests.end(); true if there is one. The
  // caller must not use the position's record after it has deleted it.
  bool Find(unsigned short id, Position& position);

  // Removes and frees the record under `id`, if there is one.
  void Delete(unsigned short id);

  // Removes and frees the record that was found at `position`, unless it has been removed since: a
  // later request under the same identifier is left alone. What the workers use.
  void Delete(const Position& position);

  // Removes the record under `id`, copies it to `request` and frees it; false and nothing written
  // when there is none. While no worker runs.
  bool Delete(unsigned short id, DnsRequest& request);

  // Removes the record under `id`, stores its application's identifier (as it came) and address,
  // and frees it; false and nothing written when there is none.
  bool Delete(unsigned short id, unsigned short& appQueryID, sockaddr& clientAddr);

  // Removes and frees every record.
  void Clear();

  PendingRequests mapRequests;

  // Initialised, and never locked, unlocked or destroyed.
  pthread_mutex_t mutexTable;
};

// Does nothing, and nothing calls it: kept for hosting processes that link to it.
void init_lock();

#endif  // DNS_PROXY_MAC_PROXY_REQUEST_TABLE_H_
