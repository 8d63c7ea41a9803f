// Lines of a trace, taken apart by the formats that print them.
#ifndef TRACE_READER_PATTERN_H_
#define TRACE_READER_PATTERN_H_

#include <array>
#include <cstdint>
#include <deque>
#include <string>
#include <string_view>

// What a line holds, in the order in which it stands there. The views look into the text.
struct Fields {
  std::int64_t id = 0;
  std::array<std::int64_t, 5> numbers = {};
  std::array<std::string_view, 2> addresses;
  std::string_view name;
};

// The size of the line with which `text` begins if all of it is as `pattern` says, a printf format
// of which %d is a number, %i an identifier, %a an address and %s any bytes: those of a line, or one
// of `names`. 0 if it is not, and `fields` is of no use then.
std::size_t Match(std::string_view text, std::string_view pattern,
                  const std::deque<std::string>& names, Fields& fields);

// Takes a decimal number off the front of `text`.
bool TakeNumber(std::string_view& text, std::int64_t& number);

inline std::string_view FirstLine(std::string_view text) { return text.substr(0, text.find('\n')); }

// `text` as printable ASCII without blanks: any other byte is written \DDD, decimal, as in a zone file.
// It cannot draw on a terminal, nor begin a line of its own.
std::string Printable(std::string_view text);

#endif  // TRACE_READER_PATTERN_H_
