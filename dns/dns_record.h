// The value classes every part of zib passes around: one question or resource record, one
// query/response exchange, and decoded SOA data.
#pragma once

#include <algorithm>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

// The bytes of one message, copied once and then shared by every record parsed from it and by
// the exchange that received it: a reply of twenty records is one copy, not twenty-one.
// Immutable once made; compared by content, so records still compare as plain values.
class shared_bytes {
 public:
  shared_bytes() = default;
  shared_bytes(std::span<const std::uint8_t> bytes);  // a copy of the bytes
  explicit shared_bytes(std::vector<std::uint8_t> bytes)
      : m_bytes(bytes.empty() ? nullptr : std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes))) {}

  template <typename Iterator>
  void assign(Iterator first, Iterator last) {
    *this = shared_bytes(std::vector<std::uint8_t>(first, last));
  }
  void clear() { m_bytes.reset(); }

  const std::uint8_t* data() const { return m_bytes ? m_bytes->data() : nullptr; }
  std::size_t size() const { return m_bytes ? m_bytes->size() : 0; }
  bool empty() const { return size() == 0; }
  const std::uint8_t* begin() const { return data(); }
  const std::uint8_t* end() const { return data() + size(); }
  std::uint8_t operator[](std::size_t index) const { return (*m_bytes)[index]; }
  operator std::span<const std::uint8_t>() const { return {data(), size()}; }

  friend bool operator==(const shared_bytes& a, const shared_bytes& b) {
    return a.m_bytes == b.m_bytes || std::equal(a.begin(), a.end(), b.begin(), b.end());
  }

 private:
  std::shared_ptr<const std::vector<std::uint8_t>> m_bytes;  // null when empty
};

// One question or resource record. It carries the whole message it came from (shared with the
// other records of that message), so compressed names inside its data can be decoded long
// after the receive buffer is gone.
struct DNS_RES_RECORD {
  shared_bytes packet;               // the complete message this record belongs to
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

  // Back to the freshly constructed state; rdata keeps its storage.
  void clear();
  bool operator==(const DNS_RES_RECORD&) const = default;
};

// How an attempt travelled: one datagram each way, or one message each way over a TCP
// connection (-tcp, -tcp_only).
enum class exchange_transport : std::uint8_t { udp, tcp };

// Why an attempt over TCP got no reply, where the two lengths alone do not say it. An attempt
// over UDP always keeps `none`.
enum class stream_fault : std::uint8_t {
  none,       // a reply, or a failure the lengths tell: sent_length 0 (no connection, the write failed)
  timed_out,  // the wait ended while connecting, writing or reading, whether or not the query was out
  broken,     // the query was out, then the server closed or reset the connection, or gave its
              // reply a length of 0, before a whole reply had come
};

// One query/response exchange; reused for every attempt, cleared before each.
struct dns_packet_transaction {
  shared_bytes sent;
  std::uint32_t sent_length = 0;      // 0 when sending failed
  shared_bytes received;
  std::uint32_t received_length = 0;  // 0 when nothing arrived
  std::uint64_t received_at = 0;      // same unit and epoch as DNS_RES_RECORD::timestamp
  std::vector<DNS_RES_RECORD> questions;
  std::vector<DNS_RES_RECORD> answers;
  std::vector<DNS_RES_RECORD> authority;
  std::vector<DNS_RES_RECORD> additional;
  exchange_transport transport = exchange_transport::udp;
  stream_fault fault = stream_fault::none;
  // Where the exchange went beyond the address its records carry, and how long the reply took:
  // a row takes its server from its attempt, and a round trip from a monotonic clock, which no
  // change of the time of day can bend. -1: not sent, or no reply.
  std::uint16_t server_port = 0;
  std::int64_t sent_monotonic_us = -1;
  std::int64_t round_trip_us = -1;

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
