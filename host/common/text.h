// Texts for people.
#ifndef HOST_COMMON_TEXT_H_
#define HOST_COMMON_TEXT_H_

#include <string>
#include <vector>

// `text` with every byte that is not printable ASCII as '?': it cannot draw on a terminal, nor
// begin a line of its own.
std::string Printable(std::string text);

// "a, b, c".
std::string Joined(const std::vector<std::string>& texts, const std::string& separator = ", ");

#endif  // HOST_COMMON_TEXT_H_
