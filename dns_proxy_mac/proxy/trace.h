// The service's trace: one printf a line to standard output, so that the lines of the two workers
// never mix within a line.
#ifndef DNS_PROXY_MAC_PROXY_TRACE_H_
#define DNS_PROXY_MAC_PROXY_TRACE_H_

#include <cstdio>

#define DNS_PROXY_TEXT_OF(value) #value
#define DNS_PROXY_TEXT_OF_VALUE(value) DNS_PROXY_TEXT_OF(value)

// TraceFrom("Function")("text %d\n", 7) writes "func: Function(line:<line of the call>)" and then
// the text, a printf format with its arguments behind it. Function, line and text become one
// literal, which costs nothing at run time and leaves the rest to -Wformat.
//
// The line is the one of TraceFrom("Function"), however far the arguments reach. They have
// parentheses of their own because a macro call of several lines has no line that compilers agree
// on: __LINE__ is the first to g++ and the last to clang++. So the first macro opens the
// parenthesis of printf, and the second closes it.
#define TraceFrom(function) \
  std::printf("func: " function "(line:" DNS_PROXY_TEXT_OF_VALUE(__LINE__) ")" DNS_PROXY_TRACE_REST
#define DNS_PROXY_TRACE_REST(...) __VA_ARGS__)

#endif  // DNS_PROXY_MAC_PROXY_TRACE_H_
