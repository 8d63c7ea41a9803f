// The two workers of the service; StartDnsSrv itself is declared in dns_proxy.h.
#ifndef DNS_PROXY_MAC_PROXY_SERVICE_H_
#define DNS_PROXY_MAC_PROXY_SERVICE_H_

// Thread bodies: the argument is ignored, the result null. Each waits, without a time-out, for its
// socket and hands one datagram a pass to its handler. It ends when the wait fails (a handled
// signal is enough) or the handler returns false.
void* thread_answer(void* arg);  // g_SockToDNSServers -> RecvAndProcessPacketsFromDNSServer
void* thread_query(void* arg);   // g_SockToClientApps -> RecvAndProcessPacketsFromLocalApps

#endif  // DNS_PROXY_MAC_PROXY_SERVICE_H_
