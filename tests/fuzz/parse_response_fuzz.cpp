// Fuzz target: any bytes as a received reply, through the decoders only: the parser, then the
// names and SOA data of every record read where the reports read them (at the data for NS,
// CNAME and PTR, two bytes in for MX). Nothing is formatted, so a run costs what parsing costs;
// reply_rows_check.cpp replays the kept corpus through the writers.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "dns/response_parser.h"
#include "record_decoding.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

void check_and_decode(const DNS_RES_RECORD& record, std::string& name, SOA_RDATA& soa) {
  // What parse_response promises every record: its data lies within its message.
  check(std::size_t{record.rdata_offset} + record.rdlength <= record.packet.size());
  check(record.rdata.size() == record.rdlength);
  decode_like_the_reports(record, name, soa);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // An exact-size heap copy: one byte past the input is then outside any allocation, so
  // AddressSanitizer reports a read past the message instead of it going unseen.
  const shared_bytes message(std::vector<std::uint8_t>(data, data + size));
  static dns_packet_transaction transaction;  // kept: its lists' storage is reused, as in a run
  std::uint16_t id = 0;
  parse_response(nullptr, 0, message, id, transaction.questions, transaction.answers, transaction.authority,
                 transaction.additional);
  std::string name;
  SOA_RDATA soa;
  for (const auto* list : {&transaction.answers, &transaction.authority, &transaction.additional}) {
    for (const auto& record : *list) check_and_decode(record, name, soa);
  }
  return 0;
}
