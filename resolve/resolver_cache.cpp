#include "resolve/resolver_cache.h"

#include <algorithm>

namespace {

// What an entry costs beyond its contents: the key, the map's node, the order's slot.
constexpr std::size_t k_entry_overhead = 160;
constexpr std::size_t k_record_size = sizeof(DNS_RES_RECORD);

std::string answer_key(const std::string& name, std::uint16_t type) { return "R" + std::to_string(type) + " " + name; }

std::size_t size_of(const cached_answer& a) {
  const dns_packet_transaction& t = a.transaction;
  const std::size_t records = t.questions.size() + t.answers.size() + t.authority.size() + t.additional.size();
  // Records share their message; each reply held counts once, however many records point at it.
  return a.query.packet.size() + t.received.size() + t.sent.size() + records * k_record_size + 4 * 512;
}

}  // namespace

resolver_cache::entry* resolver_cache::find(const std::string& key, clock::time_point now) {
  const auto found = m_entries.find(key);
  if (found == m_entries.end() || found->second.expires <= now) return nullptr;
  return &found->second;
}

resolver_cache::entry& resolver_cache::put(const std::string& key, std::uint32_t ttl, clock::time_point now) {
  auto [at, added] = m_entries.try_emplace(key);
  entry& e = at->second;
  const std::size_t overhead = k_entry_overhead + key.size();
  if (added) {
    m_order.push_back(key);
    account(e, overhead);
  } else {  // what it held before goes out of the count; the put adds what it holds now
    m_bytes -= e.bytes - overhead;
    e.bytes = overhead;
  }
  e.expires = now + std::chrono::seconds(ttl);
  return e;
}

void resolver_cache::account(entry& e, std::size_t bytes) {
  m_bytes += bytes;
  e.bytes += bytes;
  // The oldest go first, but never the entry being filled.
  for (std::size_t looked = 0; m_bytes > m_limit && looked < m_order.size(); ++looked) {
    const auto oldest = m_entries.find(m_order.front());
    m_order.pop_front();
    if (oldest == m_entries.end()) continue;
    if (&oldest->second == &e) {
      m_order.push_back(oldest->first);
      continue;
    }
    m_bytes -= oldest->second.bytes;
    m_entries.erase(oldest);
  }
}

void resolver_cache::put_delegation(const std::string& zone, std::vector<std::string> name_servers, std::uint32_t ttl,
                                    clock::time_point now) {
  entry& e = put("D " + zone, ttl, now);
  std::size_t bytes = 0;
  for (const std::string& n : name_servers) bytes += n.size() + sizeof(std::string);
  e.names = std::move(name_servers);
  account(e, bytes);
}

const std::vector<std::string>* resolver_cache::delegation(const std::string& zone, clock::time_point now) {
  const entry* e = find("D " + zone, now);
  return e ? &e->names : nullptr;
}

void resolver_cache::put_addresses(const std::string& host, const std::vector<std::size_t>& servers, std::uint32_t ttl,
                                   clock::time_point now) {
  entry& e = put("A " + host, ttl, now);
  for (const std::size_t s : servers)
    if (std::find(e.servers.begin(), e.servers.end(), s) == e.servers.end()) e.servers.push_back(s);
  account(e, servers.size() * sizeof(std::size_t));
}

const std::vector<std::size_t>* resolver_cache::addresses(const std::string& host, clock::time_point now) {
  const entry* e = find("A " + host, now);
  return e ? &e->servers : nullptr;
}

void resolver_cache::put_answer(const std::string& name, std::uint16_t type, cached_answer answer, std::uint32_t ttl,
                                clock::time_point now) {
  entry& e = put(answer_key(name, type), ttl, now);
  const std::size_t bytes = size_of(answer);
  e.answer = std::move(answer);
  account(e, bytes);
}

const cached_answer* resolver_cache::answer(const std::string& name, std::uint16_t type, clock::time_point now) {
  const entry* e = find(answer_key(name, type), now);
  if (e == nullptr) return nullptr;
  ++m_hits;
  return &e->answer;
}
