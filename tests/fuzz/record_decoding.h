// The decoding every report does on a record's data: the name at the data for NS, CNAME and
// PTR, two bytes in for MX, the SOA fields for SOA. Shared by the parser's fuzz target and the
// replay through the writers.
#pragma once

#include <cstdint>
#include <string>

#include "dns/response_parser.h"

inline void decode_like_the_reports(const DNS_RES_RECORD& record, std::string& name, SOA_RDATA& soa) {
  switch (record.type) {
    case k_type_ns:
    case k_type_cname:
    case k_type_ptr:
      decode_name(record.packet, static_cast<std::uint16_t>(record.rdata_offset), name);
      break;
    case k_type_mx:
      decode_name(record.packet, static_cast<std::uint16_t>(record.rdata_offset + 2), name);
      break;
    case k_type_soa:
      decode_soa(record.packet, record.rdata_offset, soa);
      break;
    default:
      break;
  }
}
