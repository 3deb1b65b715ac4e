#include "net/tcp_framing.h"

#include <algorithm>

#include "dns/byte_reader.h"

std::optional<std::vector<std::uint8_t>> frame_message(std::span<const std::uint8_t> message) {
  if (message.size() > k_max_framed_message) return std::nullopt;
  std::vector<std::uint8_t> framed;
  framed.reserve(k_frame_prefix_size + message.size());
  framed.push_back(static_cast<std::uint8_t>(message.size() >> 8));
  framed.push_back(static_cast<std::uint8_t>(message.size() & 0xFF));
  framed.insert(framed.end(), message.begin(), message.end());
  return framed;
}

std::size_t frame_reader::wanted() const {
  switch (m_state) {
    case state::length:
      return k_frame_prefix_size - m_prefix_size;
    case state::message:
      return m_length - m_message.size();
    default:
      return 0;
  }
}

std::size_t frame_reader::feed(std::span<const std::uint8_t> bytes) {
  byte_reader reader(bytes);
  if (m_state == state::length) {
    while (m_prefix_size < k_frame_prefix_size && reader.remaining() != 0) m_prefix[m_prefix_size++] = reader.u8();
    if (m_prefix_size < k_frame_prefix_size) return reader.offset();
    byte_reader prefix(m_prefix);
    m_length = prefix.u16();
    if (m_length == 0) {
      m_state = state::zero_length;
      return reader.offset();
    }
    m_message.reserve(m_length);
    m_state = state::message;
  }
  if (m_state == state::message) {
    reader.append_to(m_message, std::min(wanted(), reader.remaining()));
    if (m_message.size() == m_length) m_state = state::whole;
  }
  return reader.offset();
}
