// --status: asks the running host, and shows what it says.
#ifndef STATUS_VIEW_STATUS_VIEW_H_
#define STATUS_VIEW_STATUS_VIEW_H_

#include <optional>
#include <string>

// Prints the status of the host at `path`: lines for people, its own JSON with `json`. With `watch`
// anew after as many seconds, as a page until q is typed or, where there is no terminal, as a line
// each time. Throws Failure if no host is there at first; one that goes later is waited for.
void ShowStatus(const std::string& path, bool json, std::optional<double> watch);

#endif  // STATUS_VIEW_STATUS_VIEW_H_
