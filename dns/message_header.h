// The fixed 12-byte header of a DNS message (RFC 1035 section 4.1.1, RFC 4035 for AD and CD),
// read from received bytes, and the names of its response codes.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

struct message_header {
  std::uint16_t id = 0;  // big-endian, as the wire reads; DNS_RES_RECORD::id keeps the raw bytes
  bool qr = false, aa = false, tc = false, rd = false, ra = false, ad = false, cd = false;
  std::uint8_t opcode = 0;
  std::uint8_t rcode = 0;  // the header's four bits; extended codes need the OPT record
  std::uint16_t qdcount = 0, ancount = 0, nscount = 0, arcount = 0;

  bool operator==(const message_header&) const = default;
};

// The response codes the tool acts on by number.
enum : std::uint16_t { k_rcode_noerror = 0, k_rcode_servfail = 2, k_rcode_nxdomain = 3, k_rcode_refused = 5 };

// The header of `message`, or nullopt when it is shorter than a header.
std::optional<message_header> read_message_header(std::span<const std::uint8_t> message);

// The IANA mnemonic of a response code ("NOERROR", "NXDOMAIN", ...), or empty when it has none:
// the caller chooses what stands for an unnamed code (the number, JSON null).
std::string_view rcode_name(std::uint16_t rcode);

// The code of a response code's mnemonic, in any case ("servfail" is 2), or nullopt.
std::optional<std::uint16_t> rcode_code(std::string_view name);
