// What one reply of an authoritative server means to a name being resolved from the root down:
// an answer (following the CNAME and DNAME links it holds), a name that does not exist, a name
// without data of the type, a referral one zone further down, or nothing usable from this server
// (a lame one). Pure: given the zone asked, the question and the reply, it reads; the resolver
// decides what follows.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "dns/dns_record.h"

// The most CNAME and DNAME links a name may follow.
inline constexpr int k_chain_limit = 8;

enum class reply_meaning : std::uint8_t {
  answer,      // the type asked, at the end of `chain`
  moved,       // only the links of `chain`: their end, `target`, is to be asked elsewhere
  no_name,     // NXDOMAIN for `target` (the name, or the end of `chain`)
  no_data,     // the name (or the end of `chain`) exists without the type
  referral,    // `zone` and its `name_servers`, one zone down toward the name
  lame,        // not usable from this server: `why` says how
  loop,        // the links run in a circle, or past k_chain_limit
};

struct glue_address {
  std::string host;
  std::string address;  // IPv4 or IPv6 text
  std::uint32_t ttl = 0;
};

struct reply_reading {
  reply_meaning meaning = reply_meaning::lame;
  std::vector<DNS_RES_RECORD> chain;  // CNAME and DNAME records, in the order followed
  std::vector<DNS_RES_RECORD> final;  // the records of the type asked, of the chain's end
  std::string target;                 // the chain's end (the name itself without links)
  std::string zone;                   // referral: the zone delegated
  std::vector<std::string> name_servers;
  std::vector<glue_address> glue;     // referral: addresses of name servers inside the zone
  std::uint32_t ttl = 0;              // how long the meaning holds: least TTL of what it rests on
  std::string why;                    // lame or loop: in a few words
};

// `transaction` is the reply of a server of `zone` to the question (`name`, `type`), all names
// canonical (resolve/domain_name.h); `answered` as the exchange said (a reply with the query's
// ID that parsed). `links` were followed before this reply.
reply_reading read_reply(const dns_packet_transaction& transaction, bool answered, const std::string& zone,
                         const std::string& name, std::uint16_t type, int links = 0);
