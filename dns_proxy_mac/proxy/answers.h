// The two answers that the service makes up itself: bytes in, bytes out.
#ifndef DNS_PROXY_MAC_PROXY_ANSWERS_H_
#define DNS_PROXY_MAC_PROXY_ANSWERS_H_

#include "dns_proxy_mac/proxy/dns_message.h"
#include "dns_proxy_mac/proxy/host_table.h"

// A query of up to this many bytes leaves room for the host map's record and one zero byte behind
// it in a message of kMaxMessageSize; a longer one is not answered from the host map.
inline constexpr int kMaxHostAnswerQuery =
    kMaxMessageSize - static_cast<int>(sizeof(HostRespData)) - 1;

// Turns the query in `message`, which has room for kMaxMessageSize bytes and holds `queryLength` of
// them (kDnsHeaderSize to kMaxHostAnswerQuery), into the answer that carries `record`, and returns
// the answer's length.
//
// `appQueryID`: the application's identifier, two bytes as they came.
// `queryType`: machine order.
//
// The record stands behind all that the query carried, its additional records too. An answer to an
// AAAA question announces two records and carries the one: both by design.
int MakeHostAnswer(unsigned char* message, int queryLength, const HostRespData& record,
                   unsigned short appQueryID, unsigned short queryType);

// Writes to `response`, `queryLength` bytes, the "no such name" response to `query` of the same
// length: the whole header even if that is longer, which no query that was accepted is.
//
// Everything behind the header is the query's, additional records too, though the header counts
// none; RD is 0 whatever the query asked: both by design.
void MakeNoSuchNameResponse(const unsigned char* query, int queryLength, unsigned short appQueryID,
                            unsigned char* response);

#endif  // DNS_PROXY_MAC_PROXY_ANSWERS_H_
