#include "dns/record_types.h"

#include <algorithm>

namespace {

using enum rdata_field;

constexpr std::string_view k_unknown_type = "unk";
constexpr std::string_view k_generic_prefix = "TYPE";

// One row per type that has a mnemonic, in code order. To add a type: its code, its usual
// mnemonic, the report's name if that differs ("unk" where the report's column has none), and
// the kinds of its fields in order (none: its data is shown in the generic form). The
// compiler checks the order (below), a test that no name is there twice.
//
// The report's column has deliberate gaps: DS (43), MAILB (253) and every type named after it
// was made print "unk" there, and NSAP-PTR keeps its underscore.
constexpr record_type_info k_record_types[] = {
    {1, "A", {}, {ipv4}},
    {2, "NS", {}, {name}},
    {3, "MD", {}, {}},
    {4, "MF", {}, {}},
    {5, "CNAME", {}, {name}},
    {6, "SOA", {}, {name, name, u32, u32, u32, u32, u32}},
    {7, "MB", {}, {name}},
    {8, "MG", {}, {name}},
    {9, "MR", {}, {name}},
    {10, "NULL", {}, {}},
    {11, "WKS", {}, {ipv4, u8, ports}},
    {12, "PTR", {}, {name}},
    {13, "HINFO", {}, {text, text}},
    {14, "MINFO", {}, {name, name}},
    {15, "MX", {}, {u16, name}},
    {16, "TXT", {}, {texts}},
    {17, "RP", {}, {name, name}},
    {18, "AFSDB", {}, {u16, name}},
    {19, "X25", {}, {}},
    {20, "ISDN", {}, {}},
    {21, "RT", {}, {u16, name}},
    {22, "NSAP", {}, {}},
    {23, "NSAP-PTR", "NSAP_PTR", {}},
    {24, "SIG", {}, {}},
    {25, "KEY", {}, {}},
    {26, "PX", {}, {}},
    {27, "GPOS", {}, {}},
    {28, "AAAA", {}, {ipv6}},
    {29, "LOC", {}, {loc}},
    {30, "NXT", "unk", {}},
    {31, "EID", {}, {}},
    {32, "NIMLOC", {}, {}},
    {33, "SRV", {}, {u16, u16, u16, name}},
    {34, "ATMA", "unk", {}},
    {35, "NAPTR", {}, {u16, u16, text, text, text, name}},
    {36, "KX", {}, {u16, name}},
    {37, "CERT", {}, {cert_type, u16, algorithm, base64}},
    {38, "A6", "unk", {}},
    {39, "DNAME", {}, {name}},
    {40, "SINK", {}, {}},
    {41, "OPT", {}, {}},
    {42, "APL", {}, {prefixes}},
    {43, "DS", "unk", {u16, u8, u8, hex}},
    {44, "SSHFP", {}, {u8, u8, hex_or_empty}},
    {45, "IPSECKEY", {}, {u8, u8, u8, gateway, base64}},
    {46, "RRSIG", {}, {type, u8, u8, u32, time, time, u16, name, base64}},
    {47, "NSEC", {}, {name, types}},
    {48, "DNSKEY", {}, {u16, u8, u8, base64}},
    {49, "DHCID", {}, {base64}},
    {50, "NSEC3", {}, {u8, u8, u16, salt, hash, types_or_empty}},
    {51, "NSEC3PARAM", {}, {u8, u8, u16, salt}},
    {52, "TLSA", "unk", {u8, u8, u8, hex}},
    {53, "SMIMEA", "unk", {u8, u8, u8, hex}},
    {55, "HIP", {}, {hip}},
    {56, "NINFO", "unk", {}},
    {57, "RKEY", "unk", {}},
    {58, "TALINK", "unk", {}},
    {59, "CDS", "unk", {u16, u8, u8, hex}},
    {60, "CDNSKEY", "unk", {u16, u8, u8, base64}},
    {61, "OPENPGPKEY", "unk", {base64}},
    {62, "CSYNC", "unk", {u32, u16, types_or_empty}},
    {63, "ZONEMD", "unk", {u32, u8, u8, hex}},
    {64, "SVCB", "unk", {u16, name, svc_params}},
    {65, "HTTPS", "unk", {u16, name, svc_params}},
    {66, "DSYNC", "unk", {}},
    {67, "HHIT", "unk", {}},
    {68, "BRID", "unk", {}},
    {99, "SPF", {}, {texts}},
    {100, "UINFO", {}, {}},
    {101, "UID", {}, {}},
    {102, "GID", {}, {}},
    {103, "UNSPEC", {}, {}},
    {104, "NID", "unk", {}},
    {105, "L32", "unk", {}},
    {106, "L64", "unk", {}},
    {107, "LP", "unk", {}},
    {108, "EUI48", "unk", {eui48}},
    {109, "EUI64", "unk", {eui64}},
    {249, "TKEY", {}, {name, u32, u32, u16, key_error, sized_base64_blank, sized_base64}},
    {250, "TSIG", {}, {name, u48, u16, sized_base64, u16, key_error, sized_base64_blank}},
    {251, "IXFR", {}, {}},
    {252, "AXFR", {}, {}},
    {253, "MAILB", "unk", {}},
    {254, "MAILA", {}, {}},
    {255, "ANY", {}, {}},
    {256, "URI", "unk", {u16, u16, text_rest}},
    {257, "CAA", "unk", {u8, tag, text_rest}},
    {258, "AVC", "unk", {}},
    {259, "DOA", "unk", {}},
    {260, "AMTRELAY", "unk", {}},
    {261, "RESINFO", "unk", {}},
    {262, "WALLET", "unk", {}},
    {32768, "TA", {}, {}},
    {32769, "DLV", {}, {u16, u8, u8, hex}},
};

// find_record_type's binary search needs the codes strictly rising: a row out of place
// would make its own code and others unfindable without failing any lookup loudly.
static_assert(std::adjacent_find(std::begin(k_record_types), std::end(k_record_types),
                                 [](const record_type_info& a, const record_type_info& b) {
                                   return a.code >= b.code;
                                 }) == std::end(k_record_types),
              "k_record_types must be in strictly rising code order");

std::string_view report_name(const record_type_info& row) {
  return row.report_name.empty() ? row.name : row.report_name;
}

bool same_ignoring_case(std::string_view a, std::string_view b) {
  const auto upper = [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; };
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(),
                                            [&](char x, char y) { return upper(x) == upper(y); });
}

// "TYPE" and 1 to 5 decimal digits up to 65535; leading zeros are allowed, as RFC 3597 does not
// forbid them.
std::optional<std::uint16_t> generic_code(std::string_view text) {
  if (text.size() <= k_generic_prefix.size() || !same_ignoring_case(text.substr(0, 4), k_generic_prefix))
    return std::nullopt;
  std::uint32_t value = 0;
  for (char c : text.substr(k_generic_prefix.size())) {
    if (c < '0' || c > '9') return std::nullopt;
    value = value * 10 + static_cast<std::uint32_t>(c - '0');
    if (value > 65535) return std::nullopt;
  }
  return static_cast<std::uint16_t>(value);
}

}  // namespace

std::span<const record_type_info> record_types() { return k_record_types; }

const record_type_info* find_record_type(std::uint16_t code) {
  const auto* it = std::lower_bound(std::begin(k_record_types), std::end(k_record_types), code,
                                    [](const record_type_info& row, std::uint16_t c) { return row.code < c; });
  return it != std::end(k_record_types) && it->code == code ? it : nullptr;
}

std::string_view record_type_name(std::uint16_t code) {
  const record_type_info* row = find_record_type(code);
  return row != nullptr ? report_name(*row) : k_unknown_type;
}

std::string usual_type_name(std::uint16_t code) {
  if (const record_type_info* row = find_record_type(code)) return std::string(row->name);
  return std::string(k_generic_prefix) + std::to_string(code);
}

std::optional<std::uint16_t> type_code(std::string_view mnemonic) {
  for (const record_type_info& row : k_record_types) {
    if (same_ignoring_case(row.name, mnemonic) ||
        (report_name(row) != k_unknown_type && same_ignoring_case(report_name(row), mnemonic)))
      return row.code;
  }
  return generic_code(mnemonic);
}
