#include <cstdio>

#include "dns_proxy_mac/startup/library_placement.h"

int main() {
  std::printf("this is copy openssl lib func\n");
  cp_openssl_libs();
  std::printf("cp_openssl_libs finished\n");
  return 0;
}
