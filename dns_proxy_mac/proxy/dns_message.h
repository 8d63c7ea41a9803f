// The DNS message as bytes (RFC 1035, section 4.1): the header and the reading of the question.
#ifndef DNS_PROXY_MAC_PROXY_DNS_MESSAGE_H_
#define DNS_PROXY_MAC_PROXY_DNS_MESSAGE_H_

#if defined(__APPLE__)
#include <libkern/OSByteOrder.h>
#endif

// The header of every DNS message (RFC 1035, section 4.1.1). Every field is big-endian on the wire,
// with one exception of this service's own: `ID` is two opaque bytes. The application's identifier
// is kept and given back as it came; the proxy's own is written and read in machine order.
struct DNSHeader {
  unsigned short ID;
  unsigned short Flags;  // QR, Opcode (4), AA, TC, RD, RA, Z (3), RCODE (4), high bit first
  unsigned short QuestionCount;
  unsigned short AnswerCount;
  unsigned short AuthorityCount;
  unsigned short AdditionalCount;
};
static_assert(sizeof(DNSHeader) == 12, "twelve bytes on the wire");

inline constexpr int kDnsHeaderSize = sizeof(DNSHeader);

// The longest datagram that is received, kept or sent, in bytes.
inline constexpr int kMaxMessageSize = 8192;

// The space for a question name as text, its terminating zero included, in bytes.
inline constexpr int kDomainTextSize = 1024;

// The question type of an IPv6 address (RFC 3596, section 2.1).
inline constexpr unsigned short kTypeAAAA = 28;

// The header at the start of `message`, which holds at least kDnsHeaderSize bytes; fields in wire
// order.
DNSHeader ReadHeader(const unsigned char* message);

// `x` with its two bytes exchanged: big-endian to machine order on a little-endian machine. On
// Apple platforms the system's byte-order header brings a function of this name.
#if !defined(__APPLE__)
unsigned short _OSSwapInt16(unsigned short x);
#endif

// Reads a question (RFC 1035, section 4.1.2) into text, type and class.
//
// `packet`: the first byte of the question, `len` bytes to the end of the datagram. Label bytes
//   that the datagram announces and does not hold read as zero. Nothing outside is read.
// `out`: `outLen` bytes for the labels joined by dots: bytes as they came, no folding, no escaping.
//   The text always ends inside, provided that the caller has filled `out` with zero, or its first
//   byte at least: nothing is written for a name without a label.
// `qtype`, `qclass`: machine order; left as they were when the datagram does not hold them.
//
// Labels of 1 to 127 bytes are taken and the whole name is bounded by `out` alone; compression
// pointers are not followed. A name that breaks a rule ends where it does so, with a trace line:
// the caller learns of it only by a short or empty text.
//
// A function of its arguments, for any thread.
void ExtractDomain(const unsigned char* packet, int len, char* out, int outLen,
                   unsigned short& qtype, unsigned short& qclass);

#endif  // DNS_PROXY_MAC_PROXY_DNS_MESSAGE_H_
