// EDNS (RFC 6891): the OPT pseudo-record that a query carries to offer a larger UDP size and to
// ask for DNSSEC records, and what the OPT record of a reply says.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "dns/dns_record.h"

inline constexpr std::uint16_t k_type_opt = 41;

// What a query offers in its OPT record.
struct edns_request {
  std::uint16_t udp_size = 1232;  // the largest UDP reply this side takes (the OPT's class)
  bool dnssec_ok = false;         // DO: send DNSSEC records (RFC 3225)
};

// The OPT record's wire form: root owner, type 41, class the UDP size, extended code 0,
// version 0, the DO flag, no options. The caller counts it in ARCOUNT.
std::vector<std::uint8_t> opt_record_wire(const edns_request& request);

struct edns_option {
  std::uint16_t code = 0;
  std::vector<std::uint8_t> data;
  bool operator==(const edns_option&) const = default;
};

// A reply's OPT record, field by field (RFC 6891 section 6.1.3).
struct opt_record {
  std::uint16_t udp_size = 0;       // the class
  std::uint8_t extended_rcode = 0;  // the upper 8 bits of the 12-bit response code
  std::uint8_t version = 0;
  bool dnssec_ok = false;
  std::vector<edns_option> options;  // in order; one whose length runs past the data ends them
  bool operator==(const opt_record&) const = default;
};

// The fields of an OPT record, its options read through the byte reader from its own data.
opt_record read_opt_record(const DNS_RES_RECORD& record);

// The first record of type 41 among `additional` (a reply holds at most one; the owner name is
// not checked), or nullopt.
std::optional<opt_record> find_opt_record(std::span<const DNS_RES_RECORD> additional);

// The reply's response code: the header's four bits, below the OPT record's eight when there
// is one (so 16 is BADVERS).
std::uint16_t full_rcode(std::uint8_t header_rcode, const std::optional<opt_record>& opt);
