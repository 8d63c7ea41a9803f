// Every object that the service shares within the process.
//
//   object                 written by                       read by
//   g_Hostmaps             StartDnsSrv, before the workers  both workers, inside a pass
//   g_DnsMethodList        StartDnsSrv, before the workers  query thread, inside a pass
//   g_SockToClientApps     StartDnsSrv, before the workers  both workers (atomic)
//   g_SockToDNSServers     StartDnsSrv, before the workers  both workers (atomic)
//   g_thread_answer        StartDnsSrv                      StartDnsSrv
//   g_thread_query         StartDnsSrv                      nobody
//   g_QueryID              query thread (atomic)            query thread
//   g_DnsRequestTable      both workers: request_table.h    both workers
//
// No lock guards any of them: but for the table, nothing that the workers share changes while they
// run. Two threads may use one datagram socket at once; the system keeps datagrams whole.
//
// A second StartDnsSrv in one process may find workers of the first at work. It changes the lists
// while no pass is under way, and the rest is atomic.
#ifndef DNS_PROXY_MAC_PROXY_SERVICE_STATE_H_
#define DNS_PROXY_MAC_PROXY_SERVICE_STATE_H_

#include <pthread.h>

#include "dns_proxy_mac/proxy/host_table.h"
#include "dns_proxy_mac/proxy/query_method.h"
#include "dns_proxy_mac/proxy/request_table.h"

// Built before main in this order and destroyed at exit in the reverse one.
extern HostTable g_Hostmaps;
extern DNSMethodList g_DnsMethodList;
extern RequestTable g_DnsRequestTable;

// Zero until StartDnsSrv; afterwards the descriptors, also after they have been closed.
extern int g_SockToClientApps;  // bound to 127.0.0.1 port 53: queries in, every answer out
extern int g_SockToDNSServers;  // not bound: queries to the servers out, their answers in
extern pthread_t g_thread_answer;
extern pthread_t g_thread_query;

// The identifier of the next request; 65535 is followed by 0.
extern unsigned short g_QueryID;

// What follows is how a worker's thread uses these, and how StartDnsSrv sets a descriptor. No order
// is needed: each is a number by itself.
inline int LoadSocket(const int& sock) { return __atomic_load_n(&sock, __ATOMIC_RELAXED); }
inline void StoreSocket(int& sock, int descriptor) {
  __atomic_store_n(&sock, descriptor, __ATOMIC_RELAXED);
}
inline unsigned short TakeQueryID() { return __atomic_fetch_add(&g_QueryID, 1, __ATOMIC_RELAXED); }

#endif  // DNS_PROXY_MAC_PROXY_SERVICE_STATE_H_
