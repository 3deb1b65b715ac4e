// What a run did, counted as it goes: names, attempts, rows per status word, the replies'
// response codes and round-trip times. Shown as the progress line and the -stats summary.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include "dns/dns_record.h"

// Status words, in the order the summary lists them.
inline constexpr const char* k_status_success = "success";
inline constexpr const char* k_status_sock_err = "sock err";
inline constexpr const char* k_status_timeout = "timeout";
inline constexpr const char* k_status_unkresp = "unkresp";
inline constexpr const char* k_status_invalid = "invalid";
// An attempt over TCP whose query went out, after which the server closed or reset the
// connection, or announced a reply of length 0, before a whole reply had come.
inline constexpr const char* k_status_tcp_err = "tcp err";
inline constexpr std::array<std::string_view, 6> k_status_words = {
    k_status_success, k_status_sock_err, k_status_timeout, k_status_unkresp, k_status_invalid, k_status_tcp_err};

// What one name added to the run, counted while its attempts are reported and added to the
// summary when its rows are out: a bulk run renders a name before earlier names are written,
// and a stop signal may keep it from the output, so it must not count before then.
class name_tally {
 public:
  void count_row(std::string_view status);
  // One finished attempt: its reply's response code and its round-trip time, if it got one;
  // whether it went over TCP, and whether its reply was truncated.
  void count_attempt(const dns_packet_transaction& transaction, const DNS_RES_RECORD& query);
  bool empty() const { return m_attempts.empty(); }
  // What it holds beyond itself, for a bound on memory.
  std::size_t heap_bytes() const { return m_attempts.capacity() * sizeof(attempt_note); }

 private:
  friend class run_summary;
  static constexpr std::uint8_t k_no_reply = 0xFF;
  struct attempt_note {
    std::uint8_t rcode_slot = k_no_reply;  // index into the summary's named codes; "other" last
    std::uint64_t rtt_micros = 0;
  };
  std::array<std::uint32_t, k_status_words.size()> m_rows{};
  std::vector<attempt_note> m_attempts;
  std::uint32_t m_tcp_attempts = 0;
  std::uint32_t m_truncated = 0;
};

// One server of a run with -resolvers, as -stats and -stats_json show it.
struct server_summary {
  std::string address;
  std::uint16_t port = 0;
  std::uint64_t queries = 0, answers = 0, timeouts = 0, refused = 0, servfail = 0;
  std::optional<double> median_rtt_ms;
  double rate = 0;     // queries a second its pace allowed at the end; 0: not paced
  std::string state;   // "usable", "set aside", "lying", "checking"
  std::string reason;  // why it is set aside
  std::string check;   // what its check names got, when they set it aside
};

class run_summary {
 public:
  // One name whose rows are out; a name without attempts (never asked) is not counted.
  void add(const name_tally& name);
  // Datagrams on the bulk run's shared sockets that answered no query in flight.
  void count_strays(std::uint64_t count) { m_strays += count; }
  // The servers of a run with -resolvers, one line each.
  void set_servers(std::vector<server_summary> servers) { m_servers = std::move(servers); }
  // What an -iterative run sent: queries to how many servers, and answers its cache gave.
  void set_resolution(std::uint64_t queries, std::size_t servers, std::uint64_t cache_hits) {
    m_resolution = {queries, servers, cache_hits};
  }

  // "1200 names, 950 names/s, 3 timeouts, 1.3 s"
  std::string progress_text(double elapsed_seconds) const;
  // A few lines: names and attempts, rows per status word, response codes, round-trip times;
  // truncated replies and TCP attempts when there were any.
  void write(std::ostream& out, double elapsed_seconds) const;
  // The same as one JSON document (-stats_json), for scripts and dashboards.
  void write_json(std::ostream& out, double elapsed_seconds) const;

 private:
  // Round-trip times in microseconds, 32 buckets per power of two: within about 3 % of the
  // true value at any size, in a fixed few kilobytes however many replies there are.
  static constexpr int k_sub_bits = 5;
  static constexpr std::size_t k_buckets = (40 - k_sub_bits + 1) << k_sub_bits;
  static std::size_t bucket_of(std::uint64_t micros);
  static std::uint64_t bucket_top(std::size_t bucket);
  std::uint64_t percentile(double fraction) const;
  static void write_server(std::ostream& out, const server_summary& server);

  std::uint64_t m_names = 0;
  std::uint64_t m_attempts = 0;
  std::array<std::uint64_t, k_status_words.size()> m_rows{};
  std::array<std::uint64_t, 5> m_rcodes{};  // NOERROR, NXDOMAIN, SERVFAIL, REFUSED, any other
  std::array<std::uint64_t, k_buckets> m_rtt{};
  std::uint64_t m_replies = 0;
  std::uint64_t m_strays = 0;
  std::uint64_t m_rtt_max = 0;
  std::uint64_t m_tcp_attempts = 0;
  std::uint64_t m_truncated = 0;
  std::vector<server_summary> m_servers;
  struct resolution_counts {
    std::uint64_t queries = 0;
    std::size_t servers = 0;
    std::uint64_t cache_hits = 0;
  };
  std::optional<resolution_counts> m_resolution;
};
