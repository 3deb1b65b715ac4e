// DNS messages on a stream: each one preceded by its length in two bytes, big-endian
// (RFC 1035 section 4.2.2, RFC 7766 section 8). Pure: the bytes come and go through the caller.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

// The largest message the two bytes can announce.
inline constexpr std::size_t k_max_framed_message = 65535;
inline constexpr std::size_t k_frame_prefix_size = 2;

// `message` with its length in front; nullopt when it is longer than 65,535 bytes (a query
// with enough long labels can be).
std::optional<std::vector<std::uint8_t>> frame_message(std::span<const std::uint8_t> message);

// Takes the bytes of a stream as they arrive, in pieces of any size, until one whole message
// is in. A length of 0 is an error: no DNS message is empty, and a reader that skipped it would
// wait on for a second message the server may never send.
class frame_reader {
 public:
  enum class state : std::uint8_t {
    length,       // reading the two length bytes
    message,      // reading the message the length announced
    whole,        // message() holds the whole message
    zero_length,  // the length was 0
  };

  // Takes what it still needs from the front of `bytes`; returns how many bytes it took. Bytes
  // after a whole message (or after a length of 0) are left to the caller.
  std::size_t feed(std::span<const std::uint8_t> bytes);

  // The bytes that finish the current part (the length or the message); 0 once finished.
  std::size_t wanted() const;
  state now() const { return m_state; }
  // True once any byte has been taken.
  bool started() const { return m_prefix_size != 0; }
  // The message, whole once now() is `whole`.
  std::span<const std::uint8_t> message() const { return m_message; }

 private:
  state m_state = state::length;
  std::uint8_t m_prefix[k_frame_prefix_size] = {};
  std::size_t m_prefix_size = 0;
  std::size_t m_length = 0;
  std::vector<std::uint8_t> m_message;
};
