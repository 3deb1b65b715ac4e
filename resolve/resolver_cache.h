// What an iterative run has learned, shared by every name in flight: delegations (a zone's name
// servers), the addresses of name servers, and final answers, positive and negative, each kept
// for its TTL. The whole is bounded in bytes (-cache_mb); when it is full the oldest entries go
// first. Sans-I/O: every call is given the time.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <unordered_map>
#include <vector>

#include "dns/dns_record.h"

// A finished lookup as a name's report shows it: its query as the last server got it, and the
// reply as a recursive resolver would give it.
struct cached_answer {
  DNS_RES_RECORD query;
  dns_packet_transaction transaction;
};

class resolver_cache {
 public:
  using clock = std::chrono::steady_clock;

  explicit resolver_cache(std::size_t byte_limit) : m_limit(byte_limit) {}

  void put_delegation(const std::string& zone, std::vector<std::string> name_servers, std::uint32_t ttl,
                      clock::time_point now);
  // The zone's name servers, or null when none is known (or it expired).
  const std::vector<std::string>* delegation(const std::string& zone, clock::time_point now);

  // Addresses are server numbers, as the run numbers the servers it asks; more addresses for a
  // host add to those it has.
  void put_addresses(const std::string& host, const std::vector<std::size_t>& servers, std::uint32_t ttl,
                     clock::time_point now);
  const std::vector<std::size_t>* addresses(const std::string& host, clock::time_point now);

  void put_answer(const std::string& name, std::uint16_t type, cached_answer answer, std::uint32_t ttl,
                  clock::time_point now);
  const cached_answer* answer(const std::string& name, std::uint16_t type, clock::time_point now);

  std::uint64_t hits() const { return m_hits; }  // answers found
  std::size_t bytes() const { return m_bytes; }

 private:
  struct entry {
    clock::time_point expires;
    std::size_t bytes = 0;
    std::vector<std::string> names;
    std::vector<std::size_t> servers;
    cached_answer answer;
  };
  entry* find(const std::string& key, clock::time_point now);
  entry& put(const std::string& key, std::uint32_t ttl, clock::time_point now);
  void account(entry& e, std::size_t bytes);

  std::size_t m_limit;
  std::size_t m_bytes = 0;
  std::unordered_map<std::string, entry> m_entries;
  std::deque<std::string> m_order;  // keys as they came, for the oldest to go first
  std::uint64_t m_hits = 0;
};
