// Which datagrams may reach the service. Functions of bytes, without sockets.
//
// A datagram that a handler of the service rejects ends the worker that runs it, by design. The
// judgement here is the handlers' own, made before they see the datagram: JudgeQuery passes exactly
// what RecvAndProcessPacketsFromLocalApps accepts. JudgeAnswer keeps away what ends the answer
// thread and, beyond that, answers to another question than the one that was asked.
#ifndef HOST_CHILD_GUARD_H_
#define HOST_CHILD_GUARD_H_

#include <cstddef>
#include <span>
#include <vector>

#include "host/common/shared_memory.h"

// A datagram as it was received: up to 8,192 bytes, cut there if it was longer.
using Datagram = std::span<const unsigned char>;

// May a datagram of an application pass?
Verdict JudgeQuery(Datagram query);

// May a datagram of a server pass? `pending` is the query as it was forwarded under the identifier
// of `answer`, whoever that came from; empty if no query is pending there.
Verdict JudgeAnswer(Datagram answer, Datagram pending);

// Whether `answer`, which has a header, counts as one with records: as the service reads the count,
// low byte first and signed.
bool HasRecords(Datagram answer);

// What the sender of a query that is kept away is told: FORMERR, or REFUSED and the question for
// the root, without records. Empty for what must not be answered: fewer than 12 bytes, and
// responses, lest two programs answer each other for ever.
std::vector<unsigned char> ErrorReply(Datagram query, Verdict verdict);

// The size of `query` without its OPT record (RFC 6891), if one without fault is all that stands
// behind the one question, whose name has no more than 255 bytes (RFC 1035, section 2.3.4); the
// whole size if not. The count in the header is the caller's to change.
std::size_t SizeWithoutOpt(Datagram query);

#endif  // HOST_CHILD_GUARD_H_
