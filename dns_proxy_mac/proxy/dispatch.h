// The ladder: what is done next for a pending request.
#ifndef DNS_PROXY_MAC_PROXY_DISPATCH_H_
#define DNS_PROXY_MAC_PROXY_DISPATCH_H_

// Carries out the method at the position of the request under `id` (the proxy's identifier):
//
//   past the end     sends the application "no such name" and deletes the request
//   host map         hit: sends the application the mapped address and deletes the request
//                    miss: moves the request on and carries out its next method
//   server           sends the stored query to the server; the request waits for its answer, and is
//                    deleted, the application unanswered, when it could not be sent
//
// An `id` that is not in the table is traced and no error. `bReasonIsTimeout` is traced and nothing
// else; every caller passes false.
//
// Runs on either worker, inside its pass over the table. Sends one datagram at the most.
void TryNextDNSQueryMethod(unsigned short id, bool bReasonIsTimeout);

#endif  // DNS_PROXY_MAC_PROXY_DISPATCH_H_
