// The fixed twelve-byte header at the front of every DNS message (RFC 1035 section 4.1.1,
// AD and CD from RFC 4035 section 3.2), and the names of its response codes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

struct message_header {
  std::uint16_t id = 0;  // as a big-endian number; DNS_RES_RECORD::id keeps zib's low-byte-first form
  bool qr = false, aa = false, tc = false, rd = false, ra = false, ad = false, cd = false;
  std::uint8_t opcode = 0;
  std::uint8_t rcode = 0;  // the header's four bits; extended codes need the OPT record
  std::uint16_t qdcount = 0, ancount = 0, nscount = 0, arcount = 0;

  bool operator==(const message_header&) const = default;
};

// The header of `message`, or nullopt when the message is shorter than a header.
std::optional<message_header> read_message_header(std::span<const std::uint8_t> message);

// "NOERROR", "NXDOMAIN", ... for the codes that have a name (RFC 6895 section 2.3), otherwise
// the number in decimal.
std::string rcode_name(std::uint8_t rcode);
