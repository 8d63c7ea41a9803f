// The static host map: prepared answer records by name.
#ifndef DNS_PROXY_MAC_PROXY_HOST_TABLE_H_
#define DNS_PROXY_MAC_PROXY_HOST_TABLE_H_

#include <string>
#include <unordered_map>
#include <utility>

// One answer record in wire form (RFC 1035, section 4.1.3), ready to be put behind a question.
// Every field is in network byte order.
struct __attribute__((packed)) HostRespData {
  unsigned short Name;        // C0 0C: a pointer to offset 12, where the question's name begins
  unsigned short Type;        // 00 01: A
  unsigned short Class;       // 00 01: Internet
  unsigned int TimeToLive;    // 00 01 51 80: 86400 seconds, one day
  unsigned short DataLength;  // 00 04
  unsigned int Address;       // IPv4, as inet_addr returns it
};
static_assert(sizeof(HostRespData) == 16, "sixteen bytes on the wire");

// Names to prepared records. Filled before the workers start, or while no worker is in a pass, and
// only read otherwise, which is why it needs no guard: Find may run on both workers at once.
class HostTable {
 public:
  HostTable() = default;

  // Leaves the records to the process: only Clear frees them.
  ~HostTable() = default;

  HostTable(const HostTable&) = delete;
  HostTable& operator=(const HostTable&) = delete;

  // Stores the mapping of `name` (used as the key exactly as it is: no folding, no trimming) to
  // `address` (dotted decimal; any other text is stored as 255.255.255.255). A name that is there
  // already keeps its first record. Neither case is reported.
  void Add(char* name, const char* address);

  // Looks up `name` folded to lower case, as one whole string. True and the record, which stays the
  // table's, when it is there; false and `record` untouched when not.
  //
  // Because Add does not fold, a mapping with an upper-case letter in its name is never found.
  bool Find(std::string name, HostRespData*& record);

  // Frees every record and empties the map. Not while the workers run. The service never calls it.
  void Clear();

 private:
  std::unordered_map<std::string, HostRespData*> records_;

  // Constructed and destroyed with the table, used by no operation: kept as part of its layout.
  std::pair<std::string, HostRespData*> spare_;
};

#endif  // DNS_PROXY_MAC_PROXY_HOST_TABLE_H_
