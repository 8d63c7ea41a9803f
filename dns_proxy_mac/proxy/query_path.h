// A datagram from a local application.
#ifndef DNS_PROXY_MAC_PROXY_QUERY_PATH_H_
#define DNS_PROXY_MAC_PROXY_QUERY_PATH_H_

// Receives one datagram on `sock`, makes it a pending request under an identifier of the proxy's
// own and hands that to TryNextDNSQueryMethod. True when it did, whatever became of it there.
//
// False, and the application unanswered, when there was nothing to receive or the datagram is no
// query that can be served: shorter than a header, other than one question, or an empty name (the
// root's too). The query thread ends on false.
//
// Query thread only. Blocks until a datagram is there.
bool RecvAndProcessPacketsFromLocalApps(int sock);

#endif  // DNS_PROXY_MAC_PROXY_QUERY_PATH_H_
