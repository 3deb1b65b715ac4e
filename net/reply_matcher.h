// Which attempt a datagram on a shared socket answers. Queries carry a two-digit ID (byte 0,
// with byte 1 zero), so no two attempts waiting on one socket are given the same ID: the ID a
// reply carries names its attempt, as it does on a socket of the attempt's own. Beyond that:
// - a reply that carries the ID of a waiting attempt but the question of the query that held
//   that ID on that socket before it is a late reply to that earlier query, and answers nobody;
// - a reply with a foreign ID answers the attempt on that socket that asked its question (it
//   is then reported, and the name asked again, as one at a time);
// - anything else answers nobody (a stray).
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

class reply_matcher {
 public:
  using attempt_id = std::uint32_t;

  // The sockets it may hand out, numbered from 0; grows only.
  void set_sockets(std::size_t count);
  std::size_t sockets() const { return m_tables.size(); }

  // A socket on which no attempt waits with the ID of `query`, other than `avoid`: `prefer`
  // when it is one, else the next one after it. nullopt when there is none.
  std::optional<std::size_t> free_socket(std::span<const std::uint8_t> query, int avoid, std::size_t prefer) const;
  // The attempt now waits on `socket` for the reply to `query` (the message as sent), which must
  // have come from free_socket().
  void add(attempt_id attempt, std::size_t socket, std::span<const std::uint8_t> query);
  // It waits no more; its ID on that socket is free again.
  void forget(std::size_t socket, std::span<const std::uint8_t> query);

  // The attempt that `datagram`, read on `socket`, answers; `query_of` gives an attempt's
  // query message back.
  template <typename QueryOf>
  std::optional<attempt_id> find(std::size_t socket, std::span<const std::uint8_t> datagram, QueryOf query_of) const;

 private:
  static constexpr attempt_id k_none = UINT32_MAX;
  struct id_slot {
    attempt_id attempt = k_none;
    std::uint16_t id = 0;               // both ID bytes, as they stand
    std::uint64_t last_question = 0;    // hash of the question of the query that held it last
  };
  using socket_table = std::array<id_slot, 256>;  // by ID byte 0

  // A hash of the question (letters folded to lower case, as DNS names compare), or nullopt
  // when `message` holds no readable question.
  static std::optional<std::uint64_t> question_hash(std::span<const std::uint8_t> message);
  // True when both messages carry the same question, letters compared without case.
  static bool same_question(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b);
  static std::uint16_t raw_id(std::span<const std::uint8_t> message);

  std::vector<socket_table> m_tables;
};

template <typename QueryOf>
std::optional<reply_matcher::attempt_id> reply_matcher::find(std::size_t socket, std::span<const std::uint8_t> datagram,
                                                             QueryOf query_of) const {
  const socket_table& table = m_tables[socket];
  const std::uint16_t id = raw_id(datagram);
  const id_slot& slot = table[id & 0xFF];
  const auto question = question_hash(datagram);
  if (slot.attempt != k_none && slot.id == id) {
    if (question && same_question(query_of(slot.attempt), datagram)) return slot.attempt;
    if (question && *question == slot.last_question) return std::nullopt;  // late, for the ID's last holder
    return slot.attempt;  // its ID, another question or none: taken, as one at a time takes it
  }
  if (!question) return std::nullopt;
  for (const id_slot& other : table)
    if (other.attempt != k_none && same_question(query_of(other.attempt), datagram)) return other.attempt;
  return std::nullopt;
}
