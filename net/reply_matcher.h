// Which attempt a datagram on a shared socket answers. A reply is matched by where it came from
// (the server its source address and port are) and by its ID: queries carry a two-digit ID
// (byte 0, with byte 1 zero), and no two attempts waiting on one socket for one server are given
// the same ID, so the source and the ID name the attempt, as the ID alone does on a socket of
// the attempt's own. Beyond that:
// - a reply that carries the ID of a waiting attempt but the question of a query that held that
//   ID on that socket for that server before it is a late reply to that earlier query, and
//   answers nobody (a server may answer a second or more late, when the ID has changed hands
//   many times);
// - a reply with a foreign ID answers the attempt on that socket for that server that asked its
//   question (it is then reported, and the name asked again, as one at a time);
// - anything else answers nobody (a stray).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <deque>
#include <unordered_map>
#include <unordered_set>

class reply_matcher {
 public:
  using attempt_id = std::uint32_t;

  // A socket among the first `sockets` on which no attempt waits for `server` with the ID of
  // `query`, other than `avoid`: `prefer` when it is one, else the next one after it. nullopt
  // when there is none. `family_of` says whether a socket may be used.
  template <typename Usable>
  std::optional<std::size_t> free_socket(std::size_t sockets, std::size_t server, std::span<const std::uint8_t> query,
                                         int avoid, std::size_t prefer, Usable usable) const;
  // The attempt now waits on `socket` for `server`'s reply to `query` (the message as sent),
  // which must have come from free_socket().
  void add(attempt_id attempt, std::size_t socket, std::size_t server, std::span<const std::uint8_t> query);
  // It waits no more; its ID on that socket for that server is free again.
  void forget(std::size_t socket, std::size_t server, std::span<const std::uint8_t> query);

  // The attempt that `datagram`, read on `socket` from `server`, answers; `query_of` gives an
  // attempt's query message back.
  template <typename QueryOf>
  std::optional<attempt_id> find(std::size_t socket, std::size_t server, std::span<const std::uint8_t> datagram,
                                 QueryOf query_of) const;

  // A hash of the question (letters folded to lower case, as DNS names compare), or nullopt
  // when `message` holds no readable question.
  static std::optional<std::uint64_t> question_hash(std::span<const std::uint8_t> message);
  // True when both messages carry the same question, letters compared without case.
  static bool same_question(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b);

 private:
  static constexpr attempt_id k_none = UINT32_MAX;
  struct id_slot {
    attempt_id attempt = k_none;
    std::uint16_t id = 0;  // both ID bytes, as they stand
  };
  // Queries that held an ID are remembered, by their slot and question, this many at most: at
  // a hundred thousand queries a second, the last second and more.
  static constexpr std::size_t k_remembered = std::size_t{1} << 17;

  static std::uint64_t key(std::size_t socket, std::size_t server, std::uint8_t id_byte) {
    return std::uint64_t{socket} << 40 | std::uint64_t{server} << 8 | id_byte;
  }
  static std::uint16_t raw_id(std::span<const std::uint8_t> message);
  const id_slot* slot_at(std::size_t socket, std::size_t server, std::uint8_t id_byte) const {
    const auto found = m_slots.find(key(socket, server, id_byte));
    return found == m_slots.end() ? nullptr : &found->second;
  }

  static std::uint64_t released_key(std::uint64_t slot_key, std::uint64_t question) {
    return slot_key * 0x9E3779B97F4A7C15ULL ^ question;
  }
  bool released(std::uint64_t slot_key, std::uint64_t question) const { return m_released.contains(released_key(slot_key, question)); }

  std::unordered_map<std::uint64_t, id_slot> m_slots;
  std::unordered_multiset<std::uint64_t> m_released;
  std::deque<std::uint64_t> m_release_order;
};

template <typename Usable>
std::optional<std::size_t> reply_matcher::free_socket(std::size_t sockets, std::size_t server,
                                                      std::span<const std::uint8_t> query, int avoid,
                                                      std::size_t prefer, Usable usable) const {
  const auto id_byte = static_cast<std::uint8_t>(raw_id(query) & 0xFF);
  for (std::size_t step = 0; step < sockets; ++step) {
    const std::size_t socket = (prefer + step) % sockets;
    if (static_cast<int>(socket) == avoid || !usable(socket)) continue;
    const id_slot* slot = slot_at(socket, server, id_byte);
    if (slot == nullptr || slot->attempt == k_none) return socket;
  }
  return std::nullopt;
}

template <typename QueryOf>
std::optional<reply_matcher::attempt_id> reply_matcher::find(std::size_t socket, std::size_t server,
                                                             std::span<const std::uint8_t> datagram,
                                                             QueryOf query_of) const {
  const std::uint16_t id = raw_id(datagram);
  const auto id_byte = static_cast<std::uint8_t>(id & 0xFF);
  const id_slot* slot = slot_at(socket, server, id_byte);
  const auto question = question_hash(datagram);
  if (slot != nullptr && slot->attempt != k_none && slot->id == id) {
    if (question && same_question(query_of(slot->attempt), datagram)) return slot->attempt;
    if (question && released(key(socket, server, id_byte), *question)) return std::nullopt;  // late, for an earlier holder
    return slot->attempt;  // its ID, another question or none: taken, as one at a time takes it
  }
  if (!question) return std::nullopt;
  for (unsigned byte = 0; byte < 256; ++byte) {
    const id_slot* other = slot_at(socket, server, static_cast<std::uint8_t>(byte));
    if (other != nullptr && other->attempt != k_none && same_question(query_of(other->attempt), datagram))
      return other->attempt;
  }
  return std::nullopt;
}
