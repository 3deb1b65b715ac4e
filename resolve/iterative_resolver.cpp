#include "resolve/iterative_resolver.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>

#include "dns/message_header.h"
#include "dns/name_codec.h"
#include "net/query_transaction.h"
#include "resolve/domain_name.h"
#include "time/clock.h"

namespace {

// An answer is kept at most this long, whatever its TTL says: a run is not a resolver that lives
// for days.
constexpr std::uint32_t k_longest_ttl = 86400;

std::string status_of(const dns_packet_transaction& t) {
  if (t.sent_length == 0) return "sock err";
  if (t.received_length == 0) return "timeout";
  const auto header = read_message_header(t.received);
  if (!header) return "unusable";
  const std::string_view word = rcode_name(header->rcode);
  return word.empty() ? std::to_string(header->rcode) : std::string(word);
}

std::string led_to(const reply_reading& r) {
  switch (r.meaning) {
    case reply_meaning::answer: return "answer";
    case reply_meaning::moved: return "links to " + r.target;
    case reply_meaning::no_name: return "no such name";
    case reply_meaning::no_data: return "no data";
    case reply_meaning::referral: return "referral to " + r.zone;
    case reply_meaning::loop: return "links that fail: " + r.why;
    case reply_meaning::lame: return "lame: " + r.why;
  }
  return "";
}

}  // namespace

iterative_resolver::iterative_resolver(server_registry& servers, std::vector<std::size_t> roots,
                                       const resolve_settings& settings, resolver_cache& cache)
    : m_servers(servers), m_roots(std::move(roots)), m_settings(settings), m_cache(cache) {
  m_settings.query.recursion_desired = false;
}

std::uint32_t iterative_resolver::new_walk() {
  std::uint32_t id;
  if (!m_free_walks.empty()) {
    id = m_free_walks.back();
    m_free_walks.pop_back();
  } else {
    id = static_cast<std::uint32_t>(m_walks.size());
    m_walks.emplace_back();
  }
  walk& w = m_walks[id];
  const std::uint32_t generation = w.generation + 1;
  w = walk{};
  w.generation = generation;
  w.active = true;
  return id;
}

void iterative_resolver::start(std::uint64_t token, const DNS_RES_RECORD& query, clock::time_point now) {
  const std::uint32_t id = new_walk();
  walk& w = m_walks[id];
  std::string question;
  decode_name(query.packet, static_cast<std::uint16_t>(k_header_size), question);
  w.token = token;
  w.top = id;
  w.name = w.target = canonical_name(question);
  w.type = query.type;
  w.visited = {w.name};
  w.query = query;
  w.deadline = now + m_settings.name_timeout;
  m_deadlines.push(w.deadline, {id, w.generation});
  ++m_active_tops;
  advance(id, now);
}

// The deepest zone of `name` whose name servers the cache knows; the root at least.
std::string iterative_resolver::known_zone(const std::string& name, clock::time_point now) {
  for (std::string zone = name; zone != "."; zone = parent_name(zone))
    if (m_cache.delegation(zone, now) != nullptr) return zone;
  return ".";
}

// The addresses of the zone's name servers that the walk may use; `hosts` gets the names of
// those whose addresses are not known.
std::vector<std::size_t> iterative_resolver::zone_servers(const std::string& zone, const walk& w, clock::time_point now,
                                                          std::vector<std::string>& hosts) {
  if (zone == ".") return m_roots;
  std::vector<std::size_t> servers;
  const std::vector<std::string>* names = m_cache.delegation(zone, now);
  if (names == nullptr) return servers;
  for (const std::string& host : *names) {
    if (std::find(w.failed_hosts.begin(), w.failed_hosts.end(), host) != w.failed_hosts.end()) continue;
    const std::vector<std::size_t>* addresses = m_cache.addresses(host, now);
    if (addresses == nullptr || addresses->empty()) {
      hosts.push_back(host);
      continue;
    }
    for (const std::size_t s : *addresses)
      if (std::find(servers.begin(), servers.end(), s) == servers.end()) servers.push_back(s);
  }
  return servers;
}

// The walk goes as far as the cache takes it: to its end, or to a query it sends or waits for,
// or to the lookup of a name server's address.
void iterative_resolver::advance(std::uint32_t id, clock::time_point now) {
  walk& w = m_walks[id];
  if (!w.active) return;
  if (now >= w.deadline) return fail(id, "more than -name_timeout_ms", now);
  if (w.referrals > m_settings.referral_limit) return fail(id, "more than 16 referrals", now);
  if (const cached_answer* cached = m_cache.answer(w.target, w.type, now)) return finish_cached(id, *cached, now);
  const std::string zone = known_zone(w.target, now);
  std::vector<std::string> hosts;
  const std::vector<std::size_t> servers = zone_servers(zone, w, now, hosts);
  if (!servers.empty()) return ask(id, zone, now);
  for (const std::string& host : hosts) {
    // A lookup this walk is part of would wait for itself.
    if (std::find(w.looking_up.begin(), w.looking_up.end(), host) != w.looking_up.end()) continue;
    if (w.depth >= m_settings.depth_limit) return fail(id, "name servers without glue, " +
                                                               std::to_string(m_settings.depth_limit) + " deep", now);
    return look_up(id, host, now);
  }
  fail(id, "no address for a name server of " + zone, now);
}

void iterative_resolver::ask(std::uint32_t id, const std::string& zone, clock::time_point now) {
  walk& w = m_walks[id];
  const std::string below = name_below(w.target, zone);
  const std::string key = zone + " " + below + (below == w.target ? " " + std::to_string(w.type) : "");
  if (const auto found = m_in_flight.find(key); found != m_in_flight.end()) {
    m_queries[found->second].waiters.push_back({id, w.generation});
    return;
  }
  if (static_cast<int>(top_of(w).queries) >= m_settings.query_limit) return fail(id, "more than 64 queries", now);
  std::uint32_t q;
  if (!m_free_queries.empty()) {
    q = m_free_queries.back();
    m_free_queries.pop_back();
  } else {
    q = static_cast<std::uint32_t>(m_queries.size());
    m_queries.emplace_back();
  }
  query_state& s = m_queries[q];
  s = query_state{};
  s.live = true;
  s.key = key;
  s.zone = zone;
  s.name = w.target;
  s.type = w.type;
  std::vector<std::string> hosts;
  s.servers = zone_servers(zone, w, now, hosts);
  s.tries.assign(s.servers.size(), 0);
  s.usable = s.servers;
  s.owner = {id, w.generation};
  s.waiters.push_back({id, w.generation});
  build_query_wire(s.query, name_wire(s.name), s.name, s.type, m_settings.query);
  m_in_flight.emplace(key, q);
  m_waiting.push_back(q);
}

void iterative_resolver::look_up(std::uint32_t id, const std::string& host, clock::time_point now) {
  walk& w = m_walks[id];
  auto [at, added] = m_lookups.try_emplace(host);
  at->second.waiters.push_back({id, w.generation});
  if (!added) return;
  // Both families: a name server may be reachable over IPv6 alone.
  at->second.pending = 2;
  for (const std::uint16_t type : {std::uint16_t{k_type_a}, std::uint16_t{k_type_aaaa}}) {
    const std::uint32_t sub = new_walk();
    walk& parent = m_walks[id];
    walk& s = m_walks[sub];
    s.top = parent.top;
    s.name = s.target = host;
    s.type = type;
    s.visited = {host};
    s.depth = parent.depth + 1;
    s.looking_up = parent.looking_up;
    s.looking_up.push_back(host);
    s.deadline = parent.deadline;
    advance(sub, now);
  }
}

std::optional<iterative_resolver::waiting_query> iterative_resolver::next_query() const {
  if (m_waiting.empty()) return std::nullopt;
  const std::uint32_t q = m_waiting.front();
  const query_state& s = m_queries[q];
  return waiting_query{q, &s.query, s.usable, s.tried, s.fixed, s.over_tcp};
}

void iterative_resolver::sending(std::uint32_t id) {
  if (!m_waiting.empty() && m_waiting.front() == id) m_waiting.pop_front();
  const waiter owner = m_queries[id].owner;
  if (alive(owner)) ++top_of(m_walks[owner.walk]).queries;
}

void iterative_resolver::note_step(query_state& q, std::size_t server, const dns_packet_transaction& got,
                                   const std::string& led) {
  if (!m_settings.trace || !alive(q.owner)) return;
  top_of(m_walks[q.owner.walk]).trace.push_back({m_servers.address(server), q.zone, q.name, q.type, status_of(got), got.round_trip_us, led});
}

void iterative_resolver::attempt_ended(std::uint32_t id, std::size_t server, const DNS_RES_RECORD& sent,
                                       dns_packet_transaction&& got, bool answered, clock::time_point now) {
  query_state& q = m_queries[id];
  if (!q.live) return;
  const bool over_tcp = got.transport == exchange_transport::tcp;
  q.last = exchange_seen{sent, std::move(got), answered};
  const dns_packet_transaction& t = q.last->transaction;
  // A truncated reply is asked again at once over TCP, of the same server.
  if (!over_tcp && truncated_reply(t, sent)) {
    note_step(q, server, t, "truncated: asked again over TCP");
    q.fixed = server;
    q.over_tcp = true;
    m_waiting.push_front(id);
    return;
  }
  q.fixed.reset();
  q.over_tcp = false;
  const int links = alive(q.owner) ? m_walks[q.owner.walk].links : 0;
  const reply_reading reading = read_reply(t, answered, q.zone, q.name, q.type, links);
  note_step(q, server, t, t.received_length == 0 ? "the next server" : led_to(reading));
  if (reading.meaning != reply_meaning::lame) return query_done(id, reading, now);
  // On to the zone's next server: a time-out, REFUSED, SERVFAIL, a referral that does not lead
  // down, a reply without authority.
  const auto at = std::find(q.servers.begin(), q.servers.end(), server);
  if (at != q.servers.end()) ++q.tries[static_cast<std::size_t>(at - q.servers.begin())];
  std::erase(q.tried, server);
  q.tried.push_back(server);
  q.usable.clear();
  for (std::size_t i = 0; i < q.servers.size(); ++i)
    if (q.tries[i] <= m_settings.retry) q.usable.push_back(q.servers[i]);
  if (q.usable.empty()) return query_failed(id, reading.why, now);
  m_waiting.push_back(id);
}

// What a reply teaches every name: a delegation and its glue.
void iterative_resolver::learn(const reply_reading& reading, clock::time_point now) {
  if (reading.meaning != reply_meaning::referral) return;
  m_cache.put_delegation(reading.zone, reading.name_servers, std::min(reading.ttl, k_longest_ttl), now);
  for (const glue_address& g : reading.glue)
    if (const auto number = m_servers.number_of(g.address)) m_cache.put_addresses(g.host, {*number}, g.ttl, now);
}

void iterative_resolver::query_done(std::uint32_t q, const reply_reading& reading, clock::time_point now) {
  learn(reading, now);
  query_state& s = m_queries[q];
  m_in_flight.erase(s.key);
  std::vector<waiter> waiters = std::move(s.waiters);
  const exchange_seen last = *s.last;
  const std::string name = s.name;
  const std::uint16_t type = s.type;
  s.live = false;
  m_free_queries.push_back(q);
  for (const waiter& w : waiters) {
    if (!alive(w)) continue;
    walk& mine = m_walks[w.walk];
    mine.last = last;
    // A walk that asked the same question takes the reply as its own; the others go on from
    // what the cache now knows.
    if (mine.target == name && mine.type == type)
      apply(w.walk, reading, now);
    else
      advance(w.walk, now);
  }
}

void iterative_resolver::query_failed(std::uint32_t q, const std::string& why, clock::time_point now) {
  query_state& s = m_queries[q];
  m_in_flight.erase(s.key);
  std::vector<waiter> waiters = std::move(s.waiters);
  const std::string reason = "no server of " + s.zone + " answered (" + why + ")";
  const std::optional<exchange_seen> last = s.last;
  s.live = false;
  m_free_queries.push_back(q);
  for (const waiter& w : waiters) {
    if (!alive(w)) continue;
    if (last) m_walks[w.walk].last = last;
    fail(w.walk, reason, now);
  }
}

void iterative_resolver::apply(std::uint32_t id, const reply_reading& reading, clock::time_point now) {
  walk& w = m_walks[id];
  w.chain.insert(w.chain.end(), reading.chain.begin(), reading.chain.end());
  switch (reading.meaning) {
    case reply_meaning::answer: {
      std::vector<DNS_RES_RECORD> answers = w.chain;
      answers.insert(answers.end(), reading.final.begin(), reading.final.end());
      return finish(id, std::move(answers), reading.ttl, now);
    }
    case reply_meaning::no_name:
    case reply_meaning::no_data:
      return finish(id, w.chain, reading.ttl, now);
    case reply_meaning::moved: {
      // Each link on from the best delegation already known.
      w.links += static_cast<int>(reading.chain.size());
      if (std::find(w.visited.begin(), w.visited.end(), reading.target) != w.visited.end())
        return fail(id, "links in a loop", now);
      if (w.links > k_chain_limit) return fail(id, "more than 8 links", now);
      w.visited.push_back(reading.target);
      w.target = reading.target;
      return advance(id, now);
    }
    case reply_meaning::referral:
      ++w.referrals;
      return advance(id, now);
    case reply_meaning::loop:
      return fail(id, reading.why, now);
    case reply_meaning::lame:
      return fail(id, reading.why, now);
  }
}

// The reply that ended the name, as a recursive resolver gives it: its question, the links and
// the records of the type, every row naming the server that gave the last word.
void iterative_resolver::finish(std::uint32_t id, std::vector<DNS_RES_RECORD> answers, std::uint32_t ttl,
                                clock::time_point now) {
  walk& w = m_walks[id];
  const exchange_seen& last = *w.last;
  cached_answer report{last.query, last.transaction};
  if (w.token) {
    report.query = w.query;
    report.query.timestamp = last.query.timestamp;
    report.query.server = last.query.server;
  }
  DNS_RES_RECORD question = report.transaction.questions.empty() ? DNS_RES_RECORD{} : report.transaction.questions.front();
  question.name = w.name;
  question.type = w.type;
  question.class_ = k_class_in;
  report.transaction.questions = {question};
  for (DNS_RES_RECORD& r : answers) r.server = last.query.server;
  report.transaction.answers = std::move(answers);
  m_cache.put_answer(w.name, w.type, report, std::min(ttl, k_longest_ttl), now);
  if (w.token) {
    m_resolved.push_back({*w.token, std::move(report), true, {}, w.queries, std::move(w.trace)});
  } else {
    lookup_part_done(w.name, report.transaction.answers, ttl, now);
  }
  end_walk(id, now);
}

void iterative_resolver::finish_cached(std::uint32_t id, const cached_answer& cached, clock::time_point now) {
  walk& w = m_walks[id];
  if (w.token) {
    cached_answer report = cached;
    if (!w.chain.empty()) {  // links followed on the way come first
      std::vector<DNS_RES_RECORD> answers = w.chain;
      answers.insert(answers.end(), report.transaction.answers.begin(), report.transaction.answers.end());
      report.transaction.answers = std::move(answers);
    }
    m_resolved.push_back({*w.token, std::move(report), true, {}, w.queries, std::move(w.trace)});
  } else {
    lookup_part_done(w.name, cached.transaction.answers, k_longest_ttl, now);
  }
  end_walk(id, now);
}

void iterative_resolver::fail(std::uint32_t id, const std::string& reason, clock::time_point now) {
  walk& w = m_walks[id];
  if (!w.active) return;
  if (w.token) {
    resolved_name r{*w.token, {w.query, {}}, false, reason, w.queries, std::move(w.trace)};
    if (w.last) {
      r.report = {w.query, w.last->transaction};
      r.report.query.timestamp = w.last->query.timestamp;
      r.report.query.server = w.last->query.server;
      r.answered = w.last->answered;
    } else {  // never sent: one attempt that got no reply, and names no server
      r.report.query.timestamp = now_timestamp();
      r.report.query.server.clear();
      r.report.transaction.sent = w.query.packet;
      r.report.transaction.sent_length = static_cast<std::uint32_t>(w.query.packet.size());
    }
    m_resolved.push_back(std::move(r));
  } else {
    lookup_part_done(w.name, {}, 0, now);
  }
  end_walk(id, now);
}

void iterative_resolver::end_walk(std::uint32_t id, clock::time_point) {
  walk& w = m_walks[id];
  if (w.token) --m_active_tops;
  w.active = false;
  w.chain.clear();
  w.last.reset();
  m_free_walks.push_back(id);
}

// One family of a name server's addresses is in (or not). The walks that waited go on when both
// are: a query made with the first family's addresses alone would give up on the name when they
// fail, while the other family's may be on their way.
void iterative_resolver::lookup_part_done(const std::string& host, const std::vector<DNS_RES_RECORD>& answers,
                                          std::uint32_t ttl, clock::time_point now) {
  std::vector<std::size_t> numbers;
  for (const DNS_RES_RECORD& r : answers) {
    if ((r.type != k_type_a || r.rdata.size() != 4) && (r.type != k_type_aaaa || r.rdata.size() != 16)) continue;
    char text[64] = {};
    ::inet_ntop(r.type == k_type_a ? AF_INET : AF_INET6, r.rdata.data(), text, sizeof text);
    if (const auto number = m_servers.number_of(text)) numbers.push_back(*number);
  }
  if (!numbers.empty()) m_cache.put_addresses(host, numbers, std::min(ttl, k_longest_ttl), now);
  const auto found = m_lookups.find(host);
  if (found == m_lookups.end()) return;
  address_lookup& lookup = found->second;
  lookup.found = lookup.found || !numbers.empty();
  if (--lookup.pending > 0) return;
  const std::vector<waiter> waiters = std::move(lookup.waiters);
  const bool none = !lookup.found;
  m_lookups.erase(found);
  for (const waiter& w : waiters) {
    if (!alive(w)) continue;
    if (none) m_walks[w.walk].failed_hosts.push_back(host);
    advance(w.walk, now);
  }
}

void iterative_resolver::expire(clock::time_point now) {
  while (!m_deadlines.empty() && m_deadlines.next() <= now) {
    const waiter w = m_deadlines.pop().token;
    if (alive(w)) fail(w.walk, "more than -name_timeout_ms", now);
  }
}

std::optional<iterative_resolver::clock::time_point> iterative_resolver::next_deadline() {
  while (!m_deadlines.empty() && !alive(m_deadlines.top_token())) m_deadlines.pop();
  if (m_deadlines.empty()) return std::nullopt;
  return m_deadlines.next();
}

std::optional<resolved_name> iterative_resolver::next_resolved() {
  if (m_resolved.empty()) return std::nullopt;
  resolved_name r = std::move(m_resolved.front());
  m_resolved.pop_front();
  return r;
}
