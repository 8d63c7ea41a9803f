// Which macOS this is, as the system's own tool says it.
#ifndef DNS_PROXY_MAC_STARTUP_OS_VERSION_H_
#define DNS_PROXY_MAC_STARTUP_OS_VERSION_H_

// Runs /usr/bin/sw_vers and leaves its "ProductVersion" line in `buf`: the whole line, label, tabs
// and number, without the line feed, zero-terminated. When no line carries the label, `buf` holds
// the last line of the output instead; when the tool cannot be started or prints nothing, it is all
// zero. The tool's exit status is not looked at.
//
// `buf`: the caller's, `len` bytes, all of them overwritten. `len` has to be at least 128: the copy
// is bounded by the line (up to 127 characters), not by `len`.
//
// Blocks until the tool has ended. Writes one or two trace lines to standard output.
void get_os_ver(char* buf, int len);

#endif  // DNS_PROXY_MAC_STARTUP_OS_VERSION_H_
