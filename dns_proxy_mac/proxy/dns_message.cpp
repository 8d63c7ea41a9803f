#include "dns_proxy_mac/proxy/dns_message.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "dns_proxy_mac/proxy/trace.h"

namespace {

unsigned short ReadBigEndian16(const unsigned char* bytes) {
  return static_cast<unsigned short>((bytes[0] << 8) | bytes[1]);
}

}  // namespace

DNSHeader ReadHeader(const unsigned char* message) {
  DNSHeader header;
  std::memcpy(&header, message, sizeof(header));
  return header;
}

#if !defined(__APPLE__)
unsigned short _OSSwapInt16(unsigned short x) {
  return static_cast<unsigned short>((x << 8) | (x >> 8));
}
#endif

void ExtractDomain(const unsigned char* packet, int len, char* out, int outLen,
                   unsigned short& qtype, unsigned short& qclass) {
  // Positions, not pointers: a label may announce bytes far behind the end of the input.
  const std::ptrdiff_t inEnd = len;
  const std::ptrdiff_t outEnd = outLen;
  std::ptrdiff_t in = 0;
  std::ptrdiff_t o = 0;

  while (in < inEnd && packet[in] != 0) {
    // The length byte, signed: 0x80 and above, every compression pointer among them, is negative.
    const int labelLength = static_cast<signed char>(packet[in]);
    if (labelLength < 0) {
      TraceFrom("ExtractDomain")("ExtractDomain invalid value:%d\n", labelLength);
      break;
    }
    if (labelLength > outEnd - o) {
      TraceFrom("ExtractDomain")(
          "ExtractDomain: buffer overflow when parsing qname, chunk_len: %d\n", labelLength);
      break;
    }

    // What the label announces beyond the datagram reads as zero.
    const std::ptrdiff_t held = std::min<std::ptrdiff_t>(labelLength, inEnd - in - 1);
    std::memmove(out + o, packet + in + 1, static_cast<std::size_t>(held));
    if (held < labelLength) {
      std::memset(out + o + held, 0, static_cast<std::size_t>(labelLength - held));
    }
    o += labelLength;

    if (o == outEnd) {
      TraceFrom("ExtractDomain")(
          "ExtractDomain: buffer overflow when add suffix dot, chunk_len: %d\n", labelLength);
      // The one way to fill the space to its last byte: the text ends there instead.
      out[o - 1] = '\0';
      break;
    }
    out[o++] = '.';
    in += labelLength + 1;
  }

  if (o > 0 && out[o - 1] == '.') {
    out[o - 1] = '\0';
  }

  // Past the zero byte that ended the name, or past the length byte at which the loop stopped.
  in += 1;
  if (in < inEnd - 1) {
    qtype = ReadBigEndian16(packet + in);
  }
  in += 2;
  if (in < inEnd - 1) {
    qclass = ReadBigEndian16(packet + in);
  }
}
