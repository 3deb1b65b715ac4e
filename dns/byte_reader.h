// The one reader of received message bytes. Every field of a reply, every label of a name and
// every copy of record data is read through it, so no other code indexes a datagram.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

// A non-owning, zero-extending view over message bytes: it never outlives the buffer it views.
//
// Reading past the stored bytes yields zeros and sets the sticky overran() flag; memory outside
// the view is never touched. The zeros are the tool's own semantics (the receive buffer behind a
// reply is zero-filled, so a question cut short reads type 0 and class 0); callers that want a
// hard bound compare offsets with size() or check overran() once after a group of fields.
class byte_reader {
 public:
  byte_reader() = default;
  explicit byte_reader(std::span<const std::uint8_t> bytes) noexcept : bytes_(bytes) {}

  // Big-endian reads at the current offset; each advances the offset by its width.
  std::uint8_t u8() noexcept;
  std::uint16_t u16() noexcept;
  std::uint32_t u32() noexcept;

  // Appends the next n bytes (zeros past the end) and advances.
  void append_to(std::string& out, std::size_t n);
  void append_to(std::vector<std::uint8_t>& out, std::size_t n);

  // Moves to any offset, also one past the end or further: reads there give zeros.
  void seek(std::size_t offset) noexcept { offset_ = offset; }

  std::size_t offset() const noexcept { return offset_; }
  std::size_t size() const noexcept { return bytes_.size(); }
  std::size_t remaining() const noexcept { return offset_ < bytes_.size() ? bytes_.size() - offset_ : 0; }
  bool overran() const noexcept { return overran_; }

  // The byte at `offset` without moving; zero (and overran) when it lies past the end.
  std::uint8_t peek(std::size_t offset) noexcept;

 private:
  std::span<const std::uint8_t> bytes_;
  std::size_t offset_ = 0;
  bool overran_ = false;
};
