// Which resolvers of a pool may be trusted with the names. Before any name is asked, and when a
// resolver set aside comes back, it is asked a few names that cannot exist: random labels under
// the parent zone of the first name (or under -check_zone), of the type the run asks. An honest
// resolver says NXDOMAIN, or NOERROR without data; one that answers such a name with data where
// most of the pool says it does not exist rewrites answers (an advertising address for every
// typo) and is never asked again. A resolver that answers nothing is silent; one that answers
// only REFUSED, or SERVFAIL where the others answer, is rejecting. Under a wildcard every honest
// resolver answers with data, and then data is what most say.
//
// Sans-I/O: the driver sends the check names and hands each outcome here; the verdicts go to the
// server pool.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "dns/dns_record.h"
#include "net/server_pool.h"

// What one check name got from one resolver.
enum class check_answer : std::uint8_t {
  none,          // no reply in time
  no_such_name,  // NXDOMAIN
  no_data,       // NOERROR without answers
  data,          // NOERROR with answers
  refused,       // REFUSED
  failed,        // SERVFAIL, another code, or a reply that cannot be used
};

// The answer `transaction` holds; `answered` as the exchange said (a reply with the query's ID).
check_answer classify_check_reply(const dns_packet_transaction& transaction, bool answered);

class resolver_check {
 public:
  // `servers` resolvers, each asked `names` names.
  resolver_check(std::size_t servers, std::size_t names);

  std::size_t names() const { return m_names; }
  // A check of `server` begins (again): what it answered before is forgotten. The first check
  // of every server decides what most of the pool says; a later one is judged against that.
  void begin(std::size_t server);
  void record(std::size_t server, check_answer answer);

  // The verdict on `server` once its answers are in: none (honest), lying, silent or rejecting;
  // nullopt while it waits for its answers, or for the rest of the pool to say what most say.
  std::optional<aside_reason> verdict(std::size_t server) const;
  // For -stats: what `server` answered, and what most of the pool did.
  std::string account(std::size_t server) const;

 private:
  enum class stance : std::uint8_t { none, no_name, data, refused, failed };
  stance stance_of(std::size_t server) const;
  // What most of the first check said: no_name, data, or none when it is a tie, nobody answered,
  // or the first check is not over.
  stance majority() const;
  bool first_check_over() const;

  std::size_t m_names;
  std::vector<std::vector<check_answer>> m_answers;
  std::vector<bool> m_first_done;
  std::optional<stance> m_majority;  // fixed once the first check is over
};

// The wire form of the zone the check names go under: the parent of the name `query` asks (its
// first label left out; the root for a name of one label).
std::vector<std::uint8_t> parent_zone_of(const shared_bytes& query);
// A check name in wire form: one random label that no zone holds, under `zone` (wire form).
std::vector<std::uint8_t> check_name(std::span<const std::uint8_t> zone);
