#include "dns/record_types.h"

#include <algorithm>
#include <initializer_list>

namespace {

// The gaps are deliberate: 43 (DS) and 253 (MAILB) among them have no mnemonic here and
// print as "unk", like every code that is not listed.
constexpr record_type_info k_record_types[] = {
    {1, "A"},        {2, "NS"},        {3, "MD"},       {4, "MF"},       {5, "CNAME"},
    {6, "SOA"},      {7, "MB"},        {8, "MG"},       {9, "MR"},       {10, "NULL"},
    {11, "WKS"},     {12, "PTR"},      {13, "HINFO"},   {14, "MINFO"},   {15, "MX"},
    {16, "TXT"},     {17, "RP"},       {18, "AFSDB"},   {19, "X25"},     {20, "ISDN"},
    {21, "RT"},      {22, "NSAP"},     {23, "NSAP_PTR"}, {24, "SIG"},    {25, "KEY"},
    {26, "PX"},      {27, "GPOS"},     {28, "AAAA"},    {29, "LOC"},     {31, "EID"},
    {32, "NIMLOC"},  {33, "SRV"},      {35, "NAPTR"},   {36, "KX"},      {37, "CERT"},
    {39, "DNAME"},   {40, "SINK"},     {41, "OPT"},     {42, "APL"},     {44, "SSHFP"},
    {45, "IPSECKEY"}, {46, "RRSIG"},   {47, "NSEC"},    {48, "DNSKEY"},  {49, "DHCID"},
    {50, "NSEC3"},   {51, "NSEC3PARAM"}, {55, "HIP"},   {99, "SPF"},     {100, "UINFO"},
    {101, "UID"},    {102, "GID"},     {103, "UNSPEC"}, {249, "TKEY"},   {250, "TSIG"},
    {251, "IXFR"},   {252, "AXFR"},    {254, "MAILA"},  {255, "ANY"},    {32768, "TA"},
    {32769, "DLV"},
};

constexpr std::string_view k_unknown_type = "unk";

// Where the usual mnemonic differs from the report table's, or the table has none. Looked up
// before the report table; to add a type, add its row in code order.
constexpr record_type_info k_usual_types[] = {
    {23, "NSAP-PTR"}, {43, "DS"},     {52, "TLSA"},     {53, "SMIMEA"},   {59, "CDS"},
    {60, "CDNSKEY"},  {61, "OPENPGPKEY"}, {62, "CSYNC"}, {63, "ZONEMD"},  {64, "SVCB"},
    {65, "HTTPS"},    {108, "EUI48"}, {109, "EUI64"},   {253, "MAILB"},   {256, "URI"},
    {257, "CAA"},
};

constexpr std::string_view k_generic_prefix = "TYPE";

template <std::size_t N>
std::optional<std::string_view> find_name(const record_type_info (&table)[N], std::uint16_t code) {
  const auto* it = std::lower_bound(std::begin(table), std::end(table), code,
                                    [](const record_type_info& row, std::uint16_t c) { return row.code < c; });
  if (it == std::end(table) || it->code != code) return std::nullopt;
  return it->name;
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

std::string_view record_type_name(std::uint16_t code) {
  return find_name(k_record_types, code).value_or(k_unknown_type);
}

std::string usual_type_name(std::uint16_t code) {
  if (const auto name = find_name(k_usual_types, code)) return std::string(*name);
  if (const auto name = find_name(k_record_types, code)) return std::string(*name);
  return std::string(k_generic_prefix) + std::to_string(code);
}

std::optional<std::uint16_t> type_code(std::string_view mnemonic) {
  for (const std::span<const record_type_info> table : {std::span<const record_type_info>(k_usual_types), record_types()}) {
    for (const record_type_info& row : table) {
      if (same_ignoring_case(row.name, mnemonic)) return row.code;
    }
  }
  return generic_code(mnemonic);
}
