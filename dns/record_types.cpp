#include "dns/record_types.h"

#include <algorithm>

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

}  // namespace

std::span<const record_type_info> record_types() { return k_record_types; }

std::string_view record_type_name(std::uint16_t code) {
  const auto* end = std::end(k_record_types);
  const auto* it = std::lower_bound(std::begin(k_record_types), end, code,
                                    [](const record_type_info& row, std::uint16_t c) { return row.code < c; });
  return (it != end && it->code == code) ? it->name : k_unknown_type;
}
