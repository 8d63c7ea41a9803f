// The page: everything that is known of a trace, in one file that needs nothing else.
#ifndef TRACE_READER_PAGE_H_
#define TRACE_READER_PAGE_H_

#include <string>
#include <vector>

#include "trace_reader/summary.h"

// The page's text. What comes from the trace stands in it as text, whatever it holds.
std::string Page(const Summary& summary, const std::vector<Table>& tables);

#endif  // TRACE_READER_PAGE_H_
