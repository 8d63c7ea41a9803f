// The service's trace lines of one query, for the bare loops, with the arguments ready made. A test
// compares them with what the service prints; the numbers of the lines alone differ.
#ifndef BENCHMARKS_LOOPBACK_TRACE_LINES_H_
#define BENCHMARKS_LOOPBACK_TRACE_LINES_H_

#include <cstdio>

#include "benchmarks/support/messages.h"
#include "dns_proxy_mac/proxy/trace.h"

namespace benchmarks {

// A query of `length` bytes for `name`, up to the dispatch.
inline void TraceQuery(int length, const char* name, int id) {
  TraceFrom("thread_query")(" ****QureyThread***: received dns request\n");
  TraceFrom("RecvAndProcessPacketsFromLocalApps")("FromAPP: received %d data from %s\n", length,
                                                  "127.0.0.1");
  TraceFrom("RecvAndProcessPacketsFromLocalApps")(" pDNSHeader QuestionCount :%d\n", 1);
  TraceFrom("RecvAndProcessPacketsFromLocalApps")(" received dns request............%s\n", name);
  TraceFrom("RecvAndProcessPacketsFromLocalApps")("FromAPP: the request domain is %s, id:%d\n",
                                                  name, id);
}

// One step of the dispatch, at the method `index` of `count`, which is of `type`.
inline void TraceDispatch(int id, int index, int count, int type) {
  TraceFrom("TryNextDNSQueryMethod")("TryNextDNSQueryMethod: id: %d, bReasonIsTimeout:%d\n", id, 0);
  TraceFrom("TryNextDNSQueryMethod")(" CurrentDNSMethodIndex: %d, DnsListSize:%d\n", index, count);
  std::printf(
      "**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:%d(0: dns, 1:hostmap)\n",
      type);
}

// The host map's answer.
inline void TraceHostAnswer(const char* name, int id) {
  TraceFrom("TryNextDNSQueryMethod")(" find %s from hostmap, ip:%s, req id:%d\n", name,
                                     kMappedAddress, id);
}

// A server's answer of `length` bytes, relayed.
inline void TraceAnswer(int length, const char* name, int id) {
  TraceFrom("thread_answer")(" AnswerThread: received dns response.\n");
  TraceFrom("RecvAndProcessPacketsFromDNSServer")(" FromDNSServer: recv %d data from %s\n", length,
                                                  "127.0.0.2");
  TraceFrom("RecvAndProcessPacketsFromDNSServer")(
      " domain %s received answer %d.%d.%d.%d from %s, we have to delete id:%d\n", name, -64, 0, 2,
      7, "127.0.0.2", id);
}

}  // namespace benchmarks

#endif  // BENCHMARKS_LOOPBACK_TRACE_LINES_H_
