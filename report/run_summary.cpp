#include "report/run_summary.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>

#include "dns/edns.h"
#include "dns/message_header.h"
#include "report/json_writer.h"

namespace {

// The response codes the summary names; every other code is counted under "other".
constexpr std::uint8_t k_named_rcodes[] = {0, 3, 2, 5};  // NOERROR, NXDOMAIN, SERVFAIL, REFUSED

constexpr std::size_t k_timeout_row = 2;
static_assert(k_status_words[k_timeout_row] == k_status_timeout);
// Rows with this word and after it exist only where TCP was used; the summary names them then.
constexpr std::size_t k_tcp_rows = 5;
static_assert(k_status_words[k_tcp_rows] == k_status_tcp_err);

std::string milliseconds(std::uint64_t micros) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f", static_cast<double>(micros) / 1000.0);
  return text;
}

double per_second(std::uint64_t count, double seconds) { return seconds > 0 ? count / seconds : 0.0; }

std::string decimal(double value, int places) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", places, value);
  return text;
}

// An IPv6 address goes in brackets before its port.
std::string server_text(const server_summary& s) {
  const bool v6 = s.address.find(':') != std::string::npos;
  return (v6 ? "[" + s.address + "]" : s.address) + ":" + std::to_string(s.port);
}

}  // namespace

void name_tally::count_row(std::string_view status) {
  const auto found = std::find(k_status_words.begin(), k_status_words.end(), status);
  if (found != k_status_words.end()) ++m_rows[static_cast<std::size_t>(found - k_status_words.begin())];
}

void name_tally::count_attempt(const dns_packet_transaction& transaction, const DNS_RES_RECORD& query) {
  attempt_note note;
  if (transaction.transport == exchange_transport::tcp) ++m_tcp_attempts;
  if (transaction.received_length != 0) {
    const auto header = read_message_header(transaction.received);
    if (header && header->tc) ++m_truncated;
    // A reply too short to carry a code counts as "other", the slot after the named ones, and
    // so does an extended code (BADVERS and the rest).
    const auto rcode = header ? full_rcode(header->rcode, find_opt_record(transaction.additional)) : 0;
    const auto* named = header ? std::find(std::begin(k_named_rcodes), std::end(k_named_rcodes), rcode)
                               : std::end(k_named_rcodes);
    note.rcode_slot = static_cast<std::uint8_t>(named - std::begin(k_named_rcodes));
    // From the monotonic clock where the exchange measured it; else from the wall clock, where a
    // step back must not wrap around.
    const std::uint64_t ticks =
        transaction.received_at > query.timestamp ? transaction.received_at - query.timestamp : 0;
    note.rtt_micros = transaction.round_trip_us >= 0 ? static_cast<std::uint64_t>(transaction.round_trip_us) : ticks / 10;
  }
  m_attempts.push_back(note);
}

void run_summary::add(const name_tally& name) {
  if (name.m_attempts.empty()) return;
  ++m_names;
  m_attempts += name.m_attempts.size();
  m_tcp_attempts += name.m_tcp_attempts;
  m_truncated += name.m_truncated;
  for (std::size_t i = 0; i < m_rows.size(); ++i) m_rows[i] += name.m_rows[i];
  for (const name_tally::attempt_note& note : name.m_attempts) {
    if (note.rcode_slot == name_tally::k_no_reply) continue;
    ++m_rcodes[note.rcode_slot];
    ++m_rtt[bucket_of(note.rtt_micros)];
    ++m_replies;
    m_rtt_max = std::max(m_rtt_max, note.rtt_micros);
  }
}

std::size_t run_summary::bucket_of(std::uint64_t micros) {
  constexpr std::uint64_t direct = 1u << k_sub_bits;
  if (micros < direct) return static_cast<std::size_t>(micros);
  const int top = std::bit_width(micros) - 1;  // >= k_sub_bits
  const std::size_t sub = static_cast<std::size_t>(micros >> (top - k_sub_bits)) & (direct - 1);
  return std::min(k_buckets - 1, (static_cast<std::size_t>(top - k_sub_bits + 1) << k_sub_bits) + sub);
}

std::uint64_t run_summary::bucket_top(std::size_t bucket) {
  constexpr std::size_t direct = 1u << k_sub_bits;
  if (bucket < direct) return bucket;
  const int shift = static_cast<int>(bucket >> k_sub_bits) - 1;
  const std::uint64_t base = (direct + (bucket & (direct - 1))) << shift;
  return base + ((std::uint64_t{1} << shift) - 1);
}

std::uint64_t run_summary::percentile(double fraction) const {
  if (m_replies == 0) return 0;
  const auto rank = static_cast<std::uint64_t>(std::ceil(fraction * static_cast<double>(m_replies)));
  std::uint64_t seen = 0;
  for (std::size_t i = 0; i < k_buckets; ++i) {
    seen += m_rtt[i];
    if (seen >= rank) return std::min(bucket_top(i), m_rtt_max);
  }
  return m_rtt_max;
}

std::string run_summary::progress_text(double elapsed_seconds) const {
  char text[128];
  std::snprintf(text, sizeof text, "%llu names, %.0f names/s, %llu timeouts, %.1f s",
                static_cast<unsigned long long>(m_names), per_second(m_names, elapsed_seconds),
                static_cast<unsigned long long>(m_rows[k_timeout_row]), elapsed_seconds);
  return text;
}

void run_summary::write(std::ostream& out, double elapsed_seconds) const {
  char line[128];
  std::snprintf(line, sizeof line, "names %llu, attempts %llu, %.3f s, %.0f names/s\n",
                static_cast<unsigned long long>(m_names), static_cast<unsigned long long>(m_attempts),
                elapsed_seconds, per_second(m_names, elapsed_seconds));
  out << line << "rows:";
  const std::size_t words = m_tcp_attempts != 0 ? k_status_words.size() : k_tcp_rows;
  for (std::size_t i = 0; i < words; ++i) out << (i ? ", " : " ") << k_status_words[i] << ' ' << m_rows[i];
  out << "\nrcodes:";
  for (std::size_t i = 0; i < std::size(k_named_rcodes); ++i) out << (i ? ", " : " ") << rcode_name(k_named_rcodes[i]) << ' ' << m_rcodes[i];
  out << ", other " << m_rcodes.back() << "\nrtt ms: ";
  // Without a reply there is no round trip to tell: "-", not a time of 0.
  if (m_replies == 0)
    out << "p50 -, p95 -, p99 -, max -\n";
  else
    out << "p50 " << milliseconds(percentile(0.50)) << ", p95 " << milliseconds(percentile(0.95)) << ", p99 "
        << milliseconds(percentile(0.99)) << ", max " << milliseconds(m_rtt_max) << '\n';
  if (m_truncated != 0 || m_tcp_attempts != 0)
    out << "truncated replies " << m_truncated << ", tcp attempts " << m_tcp_attempts << '\n';
  if (m_strays != 0) out << "strays: " << m_strays << " (replies to no query in flight: late, repeated or foreign)\n";
  for (const server_summary& server : m_servers) write_server(out, server);
  if (m_resolution) {
    const double per_name = m_names == 0 ? 0 : static_cast<double>(m_resolution->queries) / static_cast<double>(m_names);
    out << "iterative: " << m_resolution->queries << " queries (" << decimal(per_name, 2) << " a name) to "
        << m_resolution->servers << " servers, " << m_resolution->cache_hits << " cache hits\n";
  }
}

void run_summary::write_server(std::ostream& out, const server_summary& s) {
  out << "resolver " << server_text(s) << ": queries " << s.queries << ", answers " << s.answers << ", timeouts "
      << s.timeouts << ", refused " << s.refused << ", servfail " << s.servfail << ", rtt ms p50 "
      << (s.median_rtt_ms ? decimal(*s.median_rtt_ms, 3) : std::string("-")) << ", rate "
      << (s.rate > 0 ? decimal(s.rate, 0) + "/s" : std::string("-")) << ", " << s.state;
  if (!s.reason.empty()) out << ": " << s.reason;
  if (!s.check.empty()) out << " (" << s.check << ")";
  out << '\n';
}

void run_summary::write_json(std::ostream& out, double elapsed_seconds) const {
  std::string doc = "{";
  json_number_member(doc, "names", m_names);
  json_number_member(doc, "attempts", m_attempts);
  json_key(doc, "seconds");
  doc += decimal(elapsed_seconds, 3);
  json_key(doc, "names_per_second");
  doc += decimal(per_second(m_names, elapsed_seconds), 0);
  std::string rows = "{";
  for (std::size_t i = 0; i < k_status_words.size(); ++i) json_number_member(rows, k_status_words[i], m_rows[i]);
  json_key(doc, "rows");
  doc += rows + "}";
  std::string rcodes = "{";
  for (std::size_t i = 0; i < std::size(k_named_rcodes); ++i) json_number_member(rcodes, rcode_name(k_named_rcodes[i]), m_rcodes[i]);
  json_number_member(rcodes, "other", m_rcodes.back());
  json_key(doc, "rcodes");
  doc += rcodes + "}";
  json_key(doc, "rtt_ms");
  if (m_replies == 0) {
    doc += "null";
  } else {
    std::string rtt = "{";
    for (const auto& [name, micros] : {std::pair{"p50", percentile(0.50)}, {"p95", percentile(0.95)},
                                       {"p99", percentile(0.99)}, {"max", m_rtt_max}}) {
      json_key(rtt, name);
      rtt += milliseconds(micros);
    }
    doc += rtt + "}";
  }
  json_number_member(doc, "truncated_replies", m_truncated);
  json_number_member(doc, "tcp_attempts", m_tcp_attempts);
  json_number_member(doc, "strays", m_strays);
  json_key(doc, "resolvers");
  doc += '[';
  for (std::size_t i = 0; i < m_servers.size(); ++i) {
    const server_summary& s = m_servers[i];
    std::string one = "{";
    json_string_member(one, "address", s.address);
    json_number_member(one, "port", s.port);
    json_number_member(one, "queries", s.queries);
    json_number_member(one, "answers", s.answers);
    json_number_member(one, "timeouts", s.timeouts);
    json_number_member(one, "refused", s.refused);
    json_number_member(one, "servfail", s.servfail);
    json_key(one, "median_rtt_ms");
    one += s.median_rtt_ms ? decimal(*s.median_rtt_ms, 3) : std::string("null");
    json_key(one, "rate");
    one += decimal(s.rate, 0);
    json_string_member(one, "state", s.state);
    if (s.reason.empty()) json_null_member(one, "reason"); else json_string_member(one, "reason", s.reason);
    if (s.check.empty()) json_null_member(one, "check"); else json_string_member(one, "check", s.check);
    doc += (i ? "," : "") + one + "}";
  }
  doc += "]";
  if (m_resolution) {
    json_key(doc, "iterative");
    std::string one = "{";
    json_number_member(one, "queries", m_resolution->queries);
    json_number_member(one, "servers", m_resolution->servers);
    json_number_member(one, "cache_hits", m_resolution->cache_hits);
    doc += one + "}";
  }
  doc += "}\n";
  out << doc;
}
