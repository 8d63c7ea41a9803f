// Lines of a trace, taken apart by the formats that print them.
#ifndef TRACE_READER_PATTERN_H_
#define TRACE_READER_PATTERN_H_

#include <algorithm>
#include <array>
#include <charconv>
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

inline std::string_view FirstLine(std::string_view text) { return text.substr(0, text.find('\n')); }

// Takes a decimal number off the front of `text`.
inline bool TakeNumber(std::string_view& text, std::int64_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return error == std::errc();
}

// The size of the name with which `text` begins, followed by `behind` or, if that is empty, by the
// line's end; npos if there is none. Of `names` the longest that fits: one may begin with another.
inline std::size_t NameSize(std::string_view text, std::string_view behind,
                            const std::deque<std::string>& names) {
  std::size_t longest = 0;
  for (const std::string& name : names) {
    if (name.size() <= longest || !text.starts_with(name)) continue;
    const std::string_view rest = text.substr(name.size());
    const bool fits = behind.empty() ? FirstLine(rest).empty() : rest.starts_with(behind);
    longest = fits ? name.size() : longest;
  }
  const std::string_view line = FirstLine(text);
  if (longest != 0) return longest;
  return behind.empty() ? line.size() : line.rfind(behind);  // a name may hold that, too
}

// The size of the line with which `text` begins if all of it is as `pattern` says, a printf format
// of which %d is a number, %i an identifier, %a an address and %s any bytes: those of a line, or
// one of `names`. 0 if it is not, and `fields` is of no use then.
inline std::size_t Match(std::string_view text, std::string_view pattern,
                         const std::deque<std::string>& names, Fields& fields) {
  const std::size_t size = text.size();
  std::int64_t* number = fields.numbers.data();
  std::string_view* address = fields.addresses.data();
  while (true) {
    const std::string_view literal = pattern.substr(0, pattern.find('%'));
    if (!text.starts_with(literal)) return 0;
    text.remove_prefix(literal.size());
    pattern.remove_prefix(literal.size());
    if (pattern.empty()) return text.empty() || text.front() == '\n' ? size - text.size() : 0;
    const char conversion = pattern[1];
    pattern.remove_prefix(2);
    if (conversion == 'd' || conversion == 'i') {
      std::int64_t value = 0;
      if (!TakeNumber(text, value) || (conversion == 'i' && value != (value & 0xFFFF))) return 0;
      (conversion == 'd' ? *number++ : fields.id) = value;
      continue;
    }
    const std::size_t length =
        conversion == 'a' ? std::min(text.find_first_not_of("0123456789abcdef.:"), text.size())
                          : NameSize(text, pattern.substr(0, pattern.find('%')), names);
    if (length == std::string_view::npos) return 0;
    (conversion == 'a' ? *address++ : fields.name) = text.substr(0, length);
    text.remove_prefix(length);
  }
}

#endif  // TRACE_READER_PATTERN_H_
