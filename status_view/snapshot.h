// What a host told about itself at one moment.
#ifndef STATUS_VIEW_SNAPSHOT_H_
#define STATUS_VIEW_SNAPSHOT_H_

#include <optional>
#include <string>
#include <vector>

struct Snapshot {
  struct Count {
    std::string name;  // as people read it
    double count;
  };
  struct Server {
    std::string address;
    std::string state;
    std::optional<double> silentFor;  // seconds
  };

  std::string state;
  double uptime;  // seconds
  int hostProcess;
  int serviceProcess;           // 0: none
  std::string error;            // empty: none
  std::vector<Count> outcomes;  // of all queries: the sum is theirs
  std::vector<Count> keptAway;  // by reason
  double optRecords;
  double strayAnswers;
  std::vector<Server> servers;
  std::vector<Count> roundTrips;  // milliseconds, of those servers that are alive
  double restarts;
  std::vector<Count> lastRestarts;  // why, and how many seconds ago; the newest first
};

// From the host's JSON; nothing if it is not that. No text in it can draw on a terminal.
std::optional<Snapshot> ReadSnapshot(const std::string& json);

#endif  // STATUS_VIEW_SNAPSHOT_H_
