#include "dns_proxy_mac/proxy/service_state.h"

HostTable g_Hostmaps;
DNSMethodList g_DnsMethodList;
RequestTable g_DnsRequestTable;

int g_SockToClientApps = 0;
int g_SockToDNSServers = 0;
pthread_t g_thread_answer = {};
pthread_t g_thread_query = {};

unsigned short g_QueryID = 0;
