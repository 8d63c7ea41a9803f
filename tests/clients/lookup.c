// The C library's own resolver, by one call: prints the addresses of a name, a line each.
//   lookup NAME A|AAAA     exit status 1, and the library's words for it, when there are none
#include <arpa/inet.h>
#include <netdb.h>
#include <stdio.h>
#include <string.h>

int main(int argc, char** argv) {
  if (argc != 3) {
    return 2;
  }
  struct addrinfo hints;
  memset(&hints, 0, sizeof(hints));
  hints.ai_family = strcmp(argv[2], "AAAA") == 0 ? AF_INET6 : AF_INET;
  hints.ai_socktype = SOCK_DGRAM;  // one line an address
  struct addrinfo* found = NULL;
  const int error = getaddrinfo(argv[1], NULL, &hints, &found);
  if (error != 0) {
    puts(gai_strerror(error));
    return 1;
  }
  for (const struct addrinfo* one = found; one != NULL; one = one->ai_next) {
    char text[64];
    getnameinfo(one->ai_addr, one->ai_addrlen, text, sizeof(text), NULL, 0, NI_NUMERICHOST);
    puts(text);
  }
  freeaddrinfo(found);
  return 0;
}
