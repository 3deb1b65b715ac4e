// Record types as rows: the mnemonics (the report's and the usual ones) and the fields each
// type's data is made of. The one list behind the report's type-name column, -qtype, JSON's
// type_name and the standard text form of record data.
#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <string_view>

// The kinds of field record data is made of. Sizes are fixed unless the comment says how the
// field ends; "the rest" takes every byte up to the end of the data.
enum class rdata_field : std::uint8_t {
  name,           // a domain name (compressed or not)
  u8,             // unsigned numbers, big-endian
  u16,
  u32,
  u48,            // TSIG's time signed
  ipv4,           // 4 bytes
  ipv6,           // 16 bytes
  text,           // one <character-string>: a length byte and that many bytes
  texts,          // one or more character-strings, to the end (TXT)
  text_rest,      // the rest as one string without a length byte, maybe empty (CAA value, URI)
  tag,            // a character-string of letters and digits, 1 or more (CAA tag)
  base64,         // the rest, at least one byte
  hex,            // the rest, at least one byte
  hex_or_empty,   // the rest, maybe nothing (SSHFP fingerprint)
  salt,           // a length byte, then that many bytes as hex; none is "-" (NSEC3)
  hash,           // a length byte (1 or more), then that many bytes as base32hex (NSEC3)
  type,           // a 16-bit record type, by mnemonic (RRSIG type covered)
  types,          // a type bitmap (RFC 4034 section 4.1.2) to the end, at least one type
  types_or_empty, // the same, maybe empty (NSEC3, CSYNC)
  time,           // a 32-bit time as YYYYMMDDHHMMSS, the 1-in-2^32 ambiguity read near now
  cert_type,      // a 16-bit certificate type, by mnemonic where it has one (CERT)
  algorithm,      // an 8-bit DNSSEC algorithm, by mnemonic where it has one (CERT)
  gateway,        // by the gateway type, the field before the one before it (IPSECKEY)
  svc_params,     // SvcParams (RFC 9460) to the end
  loc,            // the whole data of a LOC record (RFC 1876), version 0 only
  eui48,          // 6 bytes, 00-00-5e-00-53-2a
  eui64,          // 8 bytes
  ports,          // a bitmap of ports to the end, maybe empty, not ending in a zero byte (WKS)
  prefixes,       // address prefixes (RFC 3123) to the end, maybe none (APL)
  hip,            // the whole data of a HIP record (RFC 8005)
  key_error,      // a 16-bit TSIG or TKEY error, by mnemonic where it has one
  sized_base64,   // a 16-bit length, then that many bytes: the length, a blank and base64 if any
  sized_base64_blank,  // the same with the blank after the length always (dig's TSIG other data,
                       // TKEY key data)
};

// The fields of one type's data, in order; none: the type is told in the generic form only.
struct rdata_layout {
  static constexpr std::size_t k_max_fields = 9;  // RRSIG has the most
  std::array<rdata_field, k_max_fields> fields{};
  std::size_t count = 0;

  constexpr rdata_layout() = default;
  constexpr rdata_layout(std::initializer_list<rdata_field> list) {
    for (const rdata_field field : list) fields[count++] = field;
  }
  std::span<const rdata_field> kinds() const { return {fields.data(), count}; }
};

struct record_type_info {
  std::uint16_t code;
  std::string_view name;         // the usual mnemonic, as IANA lists it and dig prints it
  std::string_view report_name;  // the report's type-name column; empty: the same as name
  rdata_layout layout;
};

// Every named type, in code order (the compiler checks it).
std::span<const record_type_info> record_types();

// The row of a code, or null for a code without one.
const record_type_info* find_record_type(std::uint16_t code);

// The report's mnemonic of a type code, or "unk" for a code without one.
std::string_view record_type_name(std::uint16_t code);

// The usual mnemonic of a type code, or "TYPE" and the number for a code without one
// (RFC 3597 section 5). The report's column above stays as the reports show it.
std::string usual_type_name(std::uint16_t code);

// The code of a mnemonic, compared without regard to case: the report's, the usual ones and
// the "TYPEnnn" form. nullopt for any other text.
std::optional<std::uint16_t> type_code(std::string_view mnemonic);
