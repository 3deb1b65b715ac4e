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

void reply_matcher::set_sockets(std::size_t count) {
  if (count > m_tables.size()) m_tables.resize(count);
}

std::optional<std::size_t> reply_matcher::free_socket(std::span<const std::uint8_t> query, int avoid,
                                                      std::size_t prefer) const {
  const std::size_t id = raw_id(query) & 0xFF;
  for (std::size_t step = 0; step < m_tables.size(); ++step) {
    const std::size_t socket = (prefer + step) % m_tables.size();
    if (static_cast<int>(socket) != avoid && m_tables[socket][id].attempt == k_none) return socket;
  }
  return std::nullopt;
}

void reply_matcher::add(attempt_id attempt, std::size_t socket, std::span<const std::uint8_t> query) {
  id_slot& slot = m_tables[socket][raw_id(query) & 0xFF];
  slot.attempt = attempt;
  slot.id = raw_id(query);
}

void reply_matcher::forget(std::size_t socket, std::span<const std::uint8_t> query) {
  const std::size_t id = raw_id(query) & 0xFF;
  id_slot& slot = m_tables[socket][id];
  slot.attempt = k_none;
  slot.last_question = question_hash(query).value_or(0);
}
