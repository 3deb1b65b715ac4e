// Parsing a reply into the four record lists, and the SOA decoder that the renderers use on a
// record's own copy of the message. The name decoder comes with it from name_codec.h.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "dns/dns_record.h"
#include "dns/name_codec.h"

// Parses `message` (the received bytes; its size is the message length). Returns the offset
// just past the last record read, or 0 on failure; the records read before a failure stay in
// the lists. `server` may be null. `id` receives the first two bytes read low byte first; it is
// left alone when the message is refused as not being a response.
//
// A reply that ends before its counts are met is not a failure: parsing stops at the end of
// the data. Record data is kept raw; what it means is decided when it is rendered.
unsigned parse_response(const std::string* server, std::uint64_t received_at,
                        std::span<const std::uint8_t> message, std::uint16_t& id,
                        std::vector<DNS_RES_RECORD>& questions, std::vector<DNS_RES_RECORD>& answers,
                        std::vector<DNS_RES_RECORD>& authority, std::vector<DNS_RES_RECORD>& additional,
                        bool require_response = true);
// The same, with the records sharing `message` itself instead of a copy of it.
unsigned parse_response(const std::string* server, std::uint64_t received_at, const shared_bytes& message,
                        std::uint16_t& id, std::vector<DNS_RES_RECORD>& questions,
                        std::vector<DNS_RES_RECORD>& answers, std::vector<DNS_RES_RECORD>& authority,
                        std::vector<DNS_RES_RECORD>& additional, bool require_response = true);

// Decodes SOA data at `offset`; resets `out` first, so a failure leaves it fresh. The five
// numbers are bounded by the message length, not by the record's data length.
bool decode_soa(std::span<const std::uint8_t> message, std::uint32_t offset, SOA_RDATA& out);
