#include "trace_reader/pattern.h"

#include <algorithm>
#include <charconv>

namespace {

// The size of the name with which `text` begins, `behind` it; npos if there is none.
std::size_t NameSize(std::string_view text, std::string_view behind,
                     const std::deque<std::string>& names) {
  for (const std::string& name : names) {
    if (text.starts_with(name) && text.substr(name.size()).starts_with(behind)) {
      return name.size();
    }
  }
  const std::string_view line = FirstLine(text);
  return behind.empty() ? line.size() : line.rfind(behind);  // a name may hold that, too
}

}  // namespace

std::string Printable(std::string_view text) {
  std::string printable;
  for (const char c : text) {
    if (c > ' ' && c < '\x7f') {
      printable.append(c == '\\' ? 2 : 1, c);
    } else {
      const std::string code = std::to_string(1000 + static_cast<unsigned char>(c));
      printable += "\\" + code.substr(1);
    }
  }
  return printable;
}

bool TakeNumber(std::string_view& text, std::int64_t& number) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  text.remove_prefix(static_cast<std::size_t>(end - text.data()));
  return error == std::errc();
}

std::size_t Match(std::string_view text, std::string_view pattern,
                  const std::deque<std::string>& names, Fields& fields) {
  const std::size_t size = text.size();
  auto* number = fields.numbers.begin();
  auto* address = fields.addresses.begin();
  while (true) {
    const std::string_view literal = pattern.substr(0, pattern.find('%'));
    if (!text.starts_with(literal)) {
      return 0;
    }
    text.remove_prefix(literal.size());
    pattern.remove_prefix(literal.size());
    if (pattern.empty()) {
      return text.empty() || text.front() == '\n' ? size - text.size() : 0;
    }
    const char conversion = pattern[1];
    pattern.remove_prefix(2);
    if (conversion == 'd' || conversion == 'i') {
      std::int64_t value = 0;
      if (!TakeNumber(text, value) || (conversion == 'i' && value != (value & 0xFFFF))) {
        return 0;
      }
      (conversion == 'd' ? *number++ : fields.id) = value;
      continue;
    }
    const std::size_t length =
        conversion == 'a' ? std::min(text.find_first_not_of("0123456789abcdef.:"), text.size())
                          : NameSize(text, pattern.substr(0, pattern.find('%')), names);
    if (length == std::string_view::npos) {
      return 0;
    }
    (conversion == 'a' ? *address++ : fields.name) = text.substr(0, length);
    text.remove_prefix(length);
  }
}
