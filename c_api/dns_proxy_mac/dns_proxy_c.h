/* The hosting process's page for C, and for languages that read C headers: Objective-C, Swift. */
#ifndef DNS_PROXY_MAC_DNS_PROXY_C_H_
#define DNS_PROXY_MAC_DNS_PROXY_C_H_

#include <stdbool.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Runs the local DNS proxy on UDP 127.0.0.1 port 53 and does not return while it runs.
 *
 * servers: `server_count` upstream servers, IPv4 in dotted decimal, in the order of trial, asked on
 *   port 53.
 * names, addresses: `map_count` pairs, answered at once and not forwarded: names[i], in lower case,
 *   has the IPv4 address addresses[i]. (A query of 8,176 bytes or more is: no room for the record.)
 *
 * An array may be null when its count is 0. The strings are copied: the caller keeps its own.
 *
 * False when the service could not be started: no socket, port taken or no right to it, no thread,
 * no memory for the copies, or a null string (then nothing was begun). True after it was started
 * and its answer thread has ended.
 *
 * Once per process (a second call adds to what the first left), and there is no way to stop it: leave the process, by _exit while its threads
 * may be running. Block signals in the calling thread beforehand. Blocks; any thread. */
bool dns_proxy_start(const char* const* servers, size_t server_count, const char* const* names,
                     const char* const* addresses, size_t map_count);

/* Copies the first three servers of /etc/resolv.conf to server1, server2 and server3: the rest of
 * each line behind "nameserver", comments included, and no terminator. Pass zero-filled buffers
 * with room for a whole line of that file. A buffer for which there is no server is left untouched.
 * Any thread. */
void dns_proxy_local_servers(char* server1, char* server2, char* server3);

#ifdef __cplusplus
}
#endif

#endif /* DNS_PROXY_MAC_DNS_PROXY_C_H_ */
