// A datagram from a server.
#ifndef DNS_PROXY_MAC_PROXY_RESPONSE_PATH_H_
#define DNS_PROXY_MAC_PROXY_RESPONSE_PATH_H_

// Receives one datagram on `sock` and finds the pending request that it answers. With answer
// records it goes to the application, under the application's identifier and otherwise byte for
// byte, and the request is deleted; without, the request goes on to its next method. An unknown
// identifier or a sender other than the server that was asked: dropped, and the request waits on.
// True in all these cases.
//
// False when there was nothing to receive or the datagram is shorter than a header. The answer
// thread, and with it the service, ends on false.
//
// Answer thread only. Blocks until a datagram is there.
bool RecvAndProcessPacketsFromDNSServer(int sock);

#endif  // DNS_PROXY_MAC_PROXY_RESPONSE_PATH_H_
