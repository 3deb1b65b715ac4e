#include "dns/dns_record.h"

shared_bytes::shared_bytes(std::span<const std::uint8_t> bytes) { assign(bytes.begin(), bytes.end()); }

void DNS_RES_RECORD::clear() {
  packet.clear();
  rdata.clear();
  server.clear();
  name.clear();
  type = 0;
  class_ = 0;
  ttl = 0;
  rdlength = 0;
  rdata_offset = 0;
  timestamp = 0;
  id = 0;
}

void dns_packet_transaction::clear() {
  sent.clear();
  received.clear();
  questions.clear();
  answers.clear();
  authority.clear();
  additional.clear();
  sent_length = 0;
  received_length = 0;
  received_at = 0;
  transport = exchange_transport::udp;
  fault = stream_fault::none;
  server_port = 0;
  sent_monotonic_us = -1;
  round_trip_us = -1;
}
