#include "net/reply_matcher.h"

#include "dns/byte_reader.h"
#include "dns/name_codec.h"

namespace {

// The question starts right after the header (RFC 1035 section 4.1.2).
constexpr std::size_t k_question_offset = k_header_size;
constexpr std::size_t k_qdcount_offset = 4;
constexpr std::size_t k_type_and_class = 4;

std::uint8_t folded(std::uint8_t byte) { return byte >= 'A' && byte <= 'Z' ? static_cast<std::uint8_t>(byte + 32) : byte; }

// The size of the question at the head of `message` (name, type and class), or 0 when there is
// none to read. Every length byte is taken as a plain length, as the query builder writes long
// labels; the walk is bounded like the name decoder's.
std::size_t question_size(std::span<const std::uint8_t> message) {
  byte_reader reader(message);
  reader.seek(k_qdcount_offset);
  if (reader.u16() == 0) return 0;
  std::size_t at = k_question_offset;
  for (int steps = 0; steps < k_name_step_limit; ++steps) {
    const std::uint8_t length = reader.peek(at);
    if (reader.overran()) return 0;
    if (length == 0) {
      const std::size_t end = at + 1 + k_type_and_class;
      return end <= message.size() ? end - k_question_offset : 0;
    }
    at += 1 + std::size_t{length};
  }
  return 0;
}

}  // namespace

std::optional<std::uint64_t> reply_matcher::question_hash(std::span<const std::uint8_t> message) {
  const std::size_t size = question_size(message);
  if (size == 0) return std::nullopt;
  std::uint64_t hash = 0xcbf29ce484222325ULL;  // FNV-1a
  byte_reader reader(message);
  reader.seek(k_question_offset);
  for (std::size_t i = 0; i < size; ++i) hash = (hash ^ folded(reader.u8())) * 0x100000001b3ULL;
  return hash;
}

bool reply_matcher::same_question(std::span<const std::uint8_t> a, std::span<const std::uint8_t> b) {
  const std::size_t size = question_size(a);
  if (size == 0 || size != question_size(b)) return false;
  byte_reader left(a);
  byte_reader right(b);
  left.seek(k_question_offset);
  right.seek(k_question_offset);
  for (std::size_t i = 0; i < size; ++i)
    if (folded(left.u8()) != folded(right.u8())) return false;
  return true;
}

std::uint16_t reply_matcher::raw_id(std::span<const std::uint8_t> message) {
  // Byte 0 low, byte 1 high, as DNS_RES_RECORD::id keeps them; a message too short reads zeros.
  byte_reader reader(message);
  const std::uint16_t low = reader.u8();
  return static_cast<std::uint16_t>(low | reader.u8() << 8);
}

void reply_matcher::add(attempt_id attempt, std::size_t socket, std::size_t server, std::span<const std::uint8_t> query) {
  id_slot& slot = m_slots[key(socket, server, static_cast<std::uint8_t>(raw_id(query) & 0xFF))];
  slot.attempt = attempt;
  slot.id = raw_id(query);
}

void reply_matcher::forget(std::size_t socket, std::size_t server, std::span<const std::uint8_t> query) {
  const std::uint64_t slot_key = key(socket, server, static_cast<std::uint8_t>(raw_id(query) & 0xFF));
  const auto found = m_slots.find(slot_key);
  if (found == m_slots.end()) return;
  m_slots.erase(found);
  const auto question = question_hash(query);
  if (!question) return;
  m_release_order.push_back(released_key(slot_key, *question));
  m_released.insert(m_release_order.back());
  if (m_release_order.size() > k_remembered) {
    m_released.erase(m_released.find(m_release_order.front()));
    m_release_order.pop_front();
  }
}
