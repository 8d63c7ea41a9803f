#include <stdio.h>
#include <unistd.h>

#include "dns_proxy_mac/dns_proxy_c.h"

int main(void) {
  /* The upstream servers, in the order of trial. */
  const char* const servers[] = {"192.0.2.53"};
  /* The name at each place, in lower case, is answered on the spot with the address there. */
  const char* const names[] = {"printer.internal"};
  const char* const addresses[] = {"192.0.2.80"};
  /* Blocks while the service runs. */
  const bool served = dns_proxy_start(servers, 1, names, addresses, 1);
  /* Here the service has ended, or could not start. What it has traced is still in the buffer. */
  fflush(stdout);
  /* _exit, because one of the service's threads may be running: nothing is torn down under it. */
  _exit(served ? 0 : 1);
}
