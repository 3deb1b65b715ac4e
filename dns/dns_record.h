// The value classes every part of zib passes around: one question or resource record, one
// query/response exchange, and decoded SOA data.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// One question or resource record. It carries a copy of the whole message it came from, so
// compressed names inside its data can be decoded long after the receive buffer is gone.
struct DNS_RES_RECORD {
  std::vector<std::uint8_t> packet;  // the complete message this record belongs to
  std::string server;                // text form of the server's IPv4 address
  std::string name;                  // owner name "a.b.c." (query text as typed for the query)
  std::uint16_t type = 0;
  std::uint16_t class_ = 0;          // "class" is a keyword; the trailing underscore is the only change
  std::uint32_t ttl = 0;
  std::uint16_t rdlength = 0;
  std::uint32_t rdata_offset = 0;    // offset of the first data byte within packet
  std::uint64_t timestamp = 0;       // 100 ns intervals since 1601-01-01 UTC
  std::uint16_t id = 0;              // the two ID bytes read low byte first
  std::vector<std::uint8_t> rdata;   // copy of the rdlength data bytes

  // Back to the freshly constructed state; the byte vectors keep their storage.
  void clear();
  bool operator==(const DNS_RES_RECORD&) const = default;
};

// One query/response exchange; reused for every attempt, cleared before each.
struct dns_packet_transaction {
  std::vector<std::uint8_t> sent;
  std::uint32_t sent_length = 0;      // 0 when sending failed
  std::vector<std::uint8_t> received;
  std::uint32_t received_length = 0;  // 0 when nothing arrived
  std::uint64_t received_at = 0;      // same unit and epoch as DNS_RES_RECORD::timestamp
  std::vector<DNS_RES_RECORD> questions;
  std::vector<DNS_RES_RECORD> answers;
  std::vector<DNS_RES_RECORD> authority;
  std::vector<DNS_RES_RECORD> additional;

  void clear();
  bool operator==(const dns_packet_transaction&) const = default;
};

// Decoded SOA data (RFC 1035 section 3.3.13).
struct SOA_RDATA {
  std::string name_server;    // MNAME
  std::string admin_mailbox;  // RNAME
  std::uint32_t serial = 0;
  std::uint32_t refresh = 0;
  std::uint32_t retry = 0;
  std::uint32_t expire = 0;
  std::uint32_t minimum = 0;

  void clear() { *this = SOA_RDATA{}; }
  bool operator==(const SOA_RDATA&) const = default;
};

// The words that name the four sections wherever zib prints or tags them. "additions" is the
// tool's own spelling, kept on purpose.
inline constexpr const char* k_section_question = "question";
inline constexpr const char* k_section_answer = "answer";
inline constexpr const char* k_section_authority = "authority";
inline constexpr const char* k_section_additions = "additions";

// Record types zib itself asks for.
enum : std::uint16_t {
  k_type_a = 1,
  k_type_ns = 2,
  k_type_cname = 5,
  k_type_soa = 6,
  k_type_ptr = 12,
  k_type_mx = 15,
  k_type_txt = 16,
  k_type_aaaa = 28,
};
inline constexpr std::uint16_t k_class_in = 1;
