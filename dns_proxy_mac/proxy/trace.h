// The service's trace: one printf a line to standard output, so that the lines of the two workers
// never mix within a line.
#ifndef DNS_PROXY_MAC_PROXY_TRACE_H_
#define DNS_PROXY_MAC_PROXY_TRACE_H_

#include <cstdio>

#define DNS_PROXY_TEXT_OF(value) #value
#define DNS_PROXY_TEXT_OF_VALUE(value) DNS_PROXY_TEXT_OF(value)

// Writes "func: <function>(line:<line of the call>)" and then `text`, a printf format with its
// arguments behind it. `function` is the calling function's name as a string literal: name and line
// become part of the format, which costs nothing at run time and leaves the rest to -Wformat.
#define TRACE(function, text, ...)                                                                 \
  std::printf("func: " function "(line:" DNS_PROXY_TEXT_OF_VALUE(__LINE__) ")" text __VA_OPT__(, ) \
                  __VA_ARGS__)

#endif  // DNS_PROXY_MAC_PROXY_TRACE_H_
