// What the service is to be started with, as the options and the files say now.
#ifndef HOST_PARENT_CONFIGURATION_H_
#define HOST_PARENT_CONFIGURATION_H_

#include <string>
#include <utility>
#include <vector>

#include "host/options.h"

struct Configuration {
  std::vector<std::string> servers;                        // StartDnsSrv's first argument
  std::vector<std::pair<std::string, std::string>> names;  // and its second
};

// Each reads its files anew and validates them; says in the log what was taken and what was left
// out. Throws Failure.
std::vector<std::string> LoadServers(const Options& options);
std::vector<std::pair<std::string, std::string>> LoadNames(const Options& options);

#endif  // HOST_PARENT_CONFIGURATION_H_
