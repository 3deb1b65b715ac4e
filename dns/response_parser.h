// Parsing a reply into the four record lists, and the name and SOA decoders that the
// renderers use on a record's own copy of the message.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "dns/dns_record.h"

// Every caller decodes names with this step limit; it is also the only guard against loops.
inline constexpr int k_name_step_limit = 99;

// Parses `message` (the received bytes; its size is the message length). Returns the offset
// just past the last record read, or 0 on failure; the records read before a failure stay in
// the lists. `server` may be null. `id` receives the first two bytes read low byte first.
unsigned parse_response(const std::string* server, std::uint64_t received_at,
                        std::span<const std::uint8_t> message, std::uint16_t& id,
                        std::vector<DNS_RES_RECORD>& questions, std::vector<DNS_RES_RECORD>& answers,
                        std::vector<DNS_RES_RECORD>& authority, std::vector<DNS_RES_RECORD>& additional,
                        bool require_response = true);

// Decodes the name at `offset` into `out` ("a.b.c."); returns the bytes it occupies there,
// or 0 on failure (out then empty).
unsigned decode_name(std::span<const std::uint8_t> message, std::uint16_t offset, std::string& out,
                     int step_limit = k_name_step_limit);

// Decodes SOA data at `offset`; resets `out` first, so a failure leaves it fresh.
bool decode_soa(std::span<const std::uint8_t> message, std::uint32_t offset, SOA_RDATA& out);
