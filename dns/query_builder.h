// Building the query message: one question, recursion desired, a two-digit message ID.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "dns/dns_record.h"
#include "dns/edns.h"

// How a query is built beyond its name and type.
struct query_settings {
  bool ip6_reverse = false;           // the name is an IPv6 address, asked under ip6.arpa (-ip6)
  std::optional<edns_request> edns;   // an OPT record in the additional section (-edns, -dnssec)
  bool recursion_desired = true;      // RD; clear for a query to an authoritative server
};

// Builds the query for `text` and `type` into `record` (its packet holds the message).
// Returns false, leaving the record cleared, when the name cannot be encoded.
bool build_query(DNS_RES_RECORD& record, std::string text, std::uint16_t type);

// The same, asking for `asked_type` with the name encoded as the lookup of `lookup_type`
// encodes it (-qtype): build_query(r, t, x) is build_query_for(r, t, x, x). `settings` may ask
// for the ip6.arpa form of the name instead, and for an OPT record.
bool build_query_for(DNS_RES_RECORD& record, std::string text, std::uint16_t lookup_type,
                     std::uint16_t asked_type, const query_settings& settings = {});

// The same for a name already in wire form (`qname`, as the question holds it), with `text` kept
// as the record's name; it cannot fail.
void build_query_wire(DNS_RES_RECORD& record, std::span<const std::uint8_t> qname, std::string text,
                      std::uint16_t type, const query_settings& settings = {});

// Why `text` cannot be encoded as a name, in a few words; empty when it can. Forward and
// in-addr.arpa names fail for the same reasons; an ip6.arpa name needs an IPv6 address.
std::string_view name_fault(std::string_view text, const query_settings& settings = {});

// Wire form of a dotted name, or nullopt (empty text, only dots, a label over 255 bytes).
std::optional<std::vector<std::uint8_t>> encode_name(std::string_view text);

// Wire form of the in-addr.arpa name for an address text, parts reversed as they stand; nullopt
// for an empty text, a text of only dots, or a part over 255 bytes.
std::optional<std::vector<std::uint8_t>> encode_reverse_name(std::string_view text);

// Wire form of the ip6.arpa name of an IPv6 address (RFC 3596 section 2.5: its 32 nibbles,
// last first), for any text form inet_pton takes; nullopt for any other text.
std::optional<std::vector<std::uint8_t>> encode_ip6_reverse_name(std::string_view text);

// `count` decimal digits (at least one), the first never '0'.
std::string random_digits(int count);
