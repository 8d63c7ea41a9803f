// Lines of the service's trace by name, for TraceIs: those that more than one test file looks for.
// docs/trace.md says what each means. "(line:%d)" stands for any line number.
#ifndef TESTS_SUPPORT_TRACE_TEXTS_H_
#define TESTS_SUPPORT_TRACE_TEXTS_H_

#include <cstddef>
#include <string>

#include "tests/support/trace_capture.h"

namespace support {

inline TraceLines operator+(TraceLines left, const TraceLines& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

namespace trace {

// StartDnsSrv.
inline constexpr char kBound[] = "func: StartDnsSrv(line:%d) bind 127.0.0.1:53 success";
inline constexpr char kNotBound[] = "func: StartDnsSrv(line:%d) bind 127.0.0.1:53 failed";
inline constexpr char kAnswerThreadMade[] =
    "func: StartDnsSrv(line:%d) pthread_create g_thread_answer success";
inline constexpr char kQueryThreadMade[] =
    "func: StartDnsSrv(line:%d) pthread_create thread_query success";
inline constexpr char kQueryThreadRefused[] =
    "func: StartDnsSrv(line:%d) pthread_create thread_query failed";
inline std::string ServerAdded(const std::string& server) {
  return "func: StartDnsSrv(line:%d) Add SP DNS to list: " + server;
}
inline std::string MappingAdded(const std::string& name, const std::string& address) {
  return "func: StartDnsSrv(line:%d) Add host map: " + name + " -> " + address;
}

// The workers.
inline constexpr char kAnswerCame[] =
    "func: thread_answer(line:%d) AnswerThread: received dns response.";
inline constexpr char kAnswerWaitFailed[] =
    "func: thread_answer(line:%d) AnswerThread: select failed. exit.";
inline constexpr char kAnswerHandlerFailed[] =
    "func: thread_answer(line:%d) RecvAndProcessPacketsFromDNSServer failed, exit.";
inline constexpr char kQueryCame[] =
    "func: thread_query(line:%d) ****QureyThread***: received dns request";
inline constexpr char kQueryWaitFailed[] =
    "func: thread_query(line:%d) QureyThread: select failed. exit";

// The query path, which writes `text`; and all of it for a query of `length` bytes from 127.0.0.1
// that becomes a request under `id`.
inline std::string QueryPath(const std::string& text) {
  return "func: RecvAndProcessPacketsFromLocalApps(line:%d)" + text;
}
inline TraceLines Accepted(std::size_t length, const std::string& name, int id) {
  return {QueryPath("FromAPP: received " + std::to_string(length) + " data from 127.0.0.1"),
          QueryPath(" pDNSHeader QuestionCount :1"),
          QueryPath(" received dns request............" + name),
          QueryPath("FromAPP: the request domain is " + name + ", id:" + std::to_string(id))};
}

// The response path.
inline std::string ResponsePath(const std::string& text) {
  return "func: RecvAndProcessPacketsFromDNSServer(line:%d)" + text;
}
inline std::string Received(std::size_t length, const std::string& from) {
  return ResponsePath(" FromDNSServer: recv " + std::to_string(length) + " data from " + from);
}
inline std::string NoRecords(const std::string& from, int id, const std::string& name) {
  return ResponsePath(" rsp from: " + from + ", id: " + std::to_string(id) + ", for : " + name +
                      ", no such name");
}
inline std::string Relayed(const std::string& name, const std::string& lastBytes,
                           const std::string& from, int id) {
  return ResponsePath(" domain " + name + " received answer " + lastBytes + " from " + from +
                      ", we have to delete id:" + std::to_string(id));
}

// The dispatch: the two lines with which every one of request `id` at `position` of `count` methods
// begins, and what may come behind them.
inline std::string Dispatch(const std::string& text) {
  return "func: TryNextDNSQueryMethod(line:%d)" + text;
}
inline TraceLines Dispatched(int id, int position, int count) {
  return {Dispatch("TryNextDNSQueryMethod: id: " + std::to_string(id) + ", bReasonIsTimeout:0"),
          Dispatch(" CurrentDNSMethodIndex: " + std::to_string(position) +
                   ", DnsListSize:" + std::to_string(count))};
}
inline std::string Method(int type) {
  return "**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:" +
         std::to_string(type) + "(0: dns, 1:hostmap)";
}
inline constexpr char kServerTried[] =
    "**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:0(0: dns, 1:hostmap)";
inline constexpr char kHostMapTried[] =
    "**********hostmap****TryNextDNSQueryMethod: iCurrentDNSMethodType:1(0: dns, 1:hostmap)";
inline constexpr char kNoMoreMethods[] =
    "func: TryNextDNSQueryMethod(line:%d) no more DNS methods, send no such name response";
inline std::string ForwardFailed(int id, int error) {
  return "TryNextDNSQueryMethod: id: " + std::to_string(id) +
         ",sendto failed: " + std::to_string(error);
}

}  // namespace trace

}  // namespace support

#endif  // TESTS_SUPPORT_TRACE_TEXTS_H_
