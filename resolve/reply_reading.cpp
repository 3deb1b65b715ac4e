#include "resolve/reply_reading.h"

#include <arpa/inet.h>
#include <sys/socket.h>

#include <algorithm>
#include <optional>

#include "dns/edns.h"
#include "dns/message_header.h"
#include "dns/name_codec.h"
#include "dns/response_parser.h"
#include "resolve/domain_name.h"

namespace {

constexpr std::uint16_t k_type_dname = 39;
constexpr std::uint16_t k_type_any = 255;

std::string owner_of(const DNS_RES_RECORD& record) { return canonical_name(record.name); }

// The name a record's data starts with (NS, CNAME, DNAME), or nullopt when it does not read.
std::optional<std::string> data_name(const DNS_RES_RECORD& record) {
  std::string text;
  if (record.rdata_offset > 0xFFFF || decode_name(record.packet, static_cast<std::uint16_t>(record.rdata_offset), text) == 0)
    return std::nullopt;
  return canonical_name(text);
}

std::optional<std::string> address_text(const DNS_RES_RECORD& record) {
  char text[INET6_ADDRSTRLEN] = {};
  if (record.type == k_type_a && record.rdata.size() == 4)
    return ::inet_ntop(AF_INET, record.rdata.data(), text, sizeof text) ? std::optional<std::string>(text) : std::nullopt;
  if (record.type == k_type_aaaa && record.rdata.size() == 16)
    return ::inet_ntop(AF_INET6, record.rdata.data(), text, sizeof text) ? std::optional<std::string>(text) : std::nullopt;
  return std::nullopt;
}

// The negative answer's TTL (RFC 2308 section 5): the SOA's own TTL or its minimum, the lesser.
std::uint32_t negative_ttl(const dns_packet_transaction& t, const std::string& name) {
  for (const DNS_RES_RECORD& r : t.authority) {
    if (r.type != k_type_soa || !within_zone(name, owner_of(r))) continue;
    SOA_RDATA soa;
    return decode_soa(r.packet, r.rdata_offset, soa) ? std::min(r.ttl, soa.minimum) : r.ttl;
  }
  return 0;
}

bool has_soa_above(const dns_packet_transaction& t, const std::string& name) {
  return std::any_of(t.authority.begin(), t.authority.end(),
                     [&](const DNS_RES_RECORD& r) { return r.type == k_type_soa && within_zone(name, owner_of(r)); });
}

std::uint32_t least_ttl(const std::vector<DNS_RES_RECORD>& a, const std::vector<DNS_RES_RECORD>& b) {
  std::uint32_t ttl = UINT32_MAX;
  for (const auto* list : {&a, &b})
    for (const DNS_RES_RECORD& r : *list) ttl = std::min(ttl, r.ttl);
  return ttl == UINT32_MAX ? 0 : ttl;
}

// A referral in the authority section: the zone its NS records are for, when it lies below the
// zone asked and above (or at) the name; those that do not lead down are lame.
void read_referral(const dns_packet_transaction& t, const std::string& zone, const std::string& name, reply_reading& r) {
  for (const DNS_RES_RECORD& ns : t.authority) {
    if (ns.type != k_type_ns) continue;
    const std::string owner = owner_of(ns);
    if (r.zone.empty()) r.zone = owner;
    if (owner != r.zone) continue;
    if (const auto host = data_name(ns)) r.name_servers.push_back(*host);
    r.ttl = r.name_servers.size() == 1 ? ns.ttl : std::min(r.ttl, ns.ttl);
  }
  if (r.zone.empty() || r.name_servers.empty()) return;
  if (!within_zone(r.zone, zone) || r.zone == zone || !within_zone(name, r.zone)) {
    r.meaning = reply_meaning::lame;
    r.why = "a referral to " + r.zone + " that does not lead down from " + zone;
    return;
  }
  r.meaning = reply_meaning::referral;
  // Glue is taken only for name servers inside the zone delegated: an address for any other name
  // is the server's word on a zone it does not speak for.
  for (const DNS_RES_RECORD& a : t.additional) {
    const std::string host = owner_of(a);
    const auto address = address_text(a);
    if (!address || !within_zone(host, r.zone)) continue;
    if (std::find(r.name_servers.begin(), r.name_servers.end(), host) == r.name_servers.end()) continue;
    r.glue.push_back({host, *address, a.ttl});
  }
}

// Follows the links the answer section holds from `name`; false when they loop or run too long.
bool follow_links(const dns_packet_transaction& t, std::uint16_t type, int links, reply_reading& r) {
  std::vector<std::string> seen{r.target};
  for (;;) {
    const std::string& at = r.target;
    for (const DNS_RES_RECORD& rec : t.answers)
      if (owner_of(rec) == at && (rec.type == type || type == k_type_any)) r.final.push_back(rec);
    if (!r.final.empty()) return true;
    const DNS_RES_RECORD* cname = nullptr;
    const DNS_RES_RECORD* dname = nullptr;
    for (const DNS_RES_RECORD& rec : t.answers) {
      if (rec.type == k_type_cname && owner_of(rec) == at) cname = &rec;
      if (rec.type == k_type_dname && at != owner_of(rec) && within_zone(at, owner_of(rec))) dname = &rec;
    }
    if (cname == nullptr && dname == nullptr) return true;
    std::optional<std::string> next;
    if (dname != nullptr) {
      r.chain.push_back(*dname);
      const std::string owner = owner_of(*dname);
      const auto to = data_name(*dname);
      if (to) next = canonical_name(at.substr(0, at.size() - owner.size()) + (*to == "." ? "" : *to));
    }
    if (cname != nullptr) {  // the CNAME a DNAME stands for, when the server wrote it, wins
      r.chain.push_back(*cname);
      next = data_name(*cname);
    }
    if (!next || ++links > k_chain_limit || std::find(seen.begin(), seen.end(), *next) != seen.end()) {
      r.why = !next ? "a link that does not read" : links > k_chain_limit ? "more than 8 links" : "links in a loop";
      return false;
    }
    seen.push_back(*next);
    r.target = *next;
  }
}

}  // namespace

reply_reading read_reply(const dns_packet_transaction& transaction, bool answered, const std::string& zone,
                         const std::string& name, std::uint16_t type, int links) {
  reply_reading r;
  r.target = name;
  const auto header = transaction.received_length != 0 ? read_message_header(transaction.received) : std::nullopt;
  if (!answered || !header) {
    r.why = transaction.received_length == 0 ? "no reply" : "a reply that cannot be used";
    return r;
  }
  const std::uint16_t rcode = full_rcode(header->rcode, find_opt_record(transaction.additional));
  if (rcode != k_rcode_noerror && rcode != k_rcode_nxdomain) {
    const std::string_view word = rcode_name(rcode);
    r.why = word.empty() ? "rcode " + std::to_string(rcode) : std::string(word);
    return r;
  }
  if (!follow_links(transaction, type, links, r)) {
    r.meaning = reply_meaning::loop;
    return r;
  }
  const bool links_followed = !r.chain.empty();
  if (!r.final.empty() || links_followed) {
    if (!header->aa) {
      r.why = "an answer without authority";
      r.chain.clear();
      r.final.clear();
      return r;
    }
    if (!r.final.empty()) {
      r.meaning = reply_meaning::answer;
      r.ttl = least_ttl(r.chain, r.final);
      return r;
    }
  }
  if (rcode == k_rcode_nxdomain) {
    if (header->aa || has_soa_above(transaction, r.target)) {
      r.meaning = reply_meaning::no_name;
      r.ttl = links_followed ? std::min(least_ttl(r.chain, {}), negative_ttl(transaction, r.target))
                             : negative_ttl(transaction, r.target);
    } else {
      r.why = "NXDOMAIN without authority";
    }
    return r;
  }
  if (links_followed) {
    // The end of the links lies in this server's zone, which says it has no such data there,
    // or elsewhere, to be asked of its own servers.
    if (has_soa_above(transaction, r.target)) {
      r.meaning = reply_meaning::no_data;
      r.ttl = std::min(least_ttl(r.chain, {}), negative_ttl(transaction, r.target));
    } else {
      r.meaning = reply_meaning::moved;
      r.ttl = least_ttl(r.chain, {});
    }
    return r;
  }
  // With authority, no data (the NS records of its own zone may stand beside); without it, a
  // referral or nothing.
  if (header->aa) {
    r.meaning = reply_meaning::no_data;
    r.ttl = negative_ttl(transaction, name);
    return r;
  }
  read_referral(transaction, zone, name, r);
  if (r.meaning == reply_meaning::referral) return r;
  if (r.why.empty()) r.why = "neither an answer with authority nor a referral";
  r.meaning = reply_meaning::lame;
  r.name_servers.clear();
  return r;
}
