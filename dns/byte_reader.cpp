#include "dns/byte_reader.h"

#include <algorithm>

std::uint8_t byte_reader::peek(std::size_t offset) noexcept {
  if (offset >= bytes_.size()) {
    overran_ = true;
    return 0;
  }
  return bytes_[offset];
}

std::uint8_t byte_reader::u8() noexcept { return peek(offset_++); }

std::uint16_t byte_reader::u16() noexcept {
  const std::uint16_t hi = u8();
  return static_cast<std::uint16_t>(hi << 8 | u8());
}

std::uint32_t byte_reader::u32() noexcept {
  const std::uint32_t hi = u16();
  return hi << 16 | u16();
}

void byte_reader::append_to(std::string& out, std::size_t n) {
  // Every label of every name passes here: the in-range part goes in one append, not byte by byte.
  const std::size_t have = std::min(n, remaining());
  const auto first = bytes_.subspan(std::min(offset_, bytes_.size()), have);
  out.append(reinterpret_cast<const char*>(first.data()), first.size());
  if (have < n) {
    out.append(n - have, '\0');
    overran_ = true;
  }
  offset_ += n;
}

void byte_reader::append_to(std::vector<std::uint8_t>& out, std::size_t n) {
  // The in-range part is copied in one go; only the tail past the end is zero-filled.
  const std::size_t have = std::min(n, remaining());
  const auto first = bytes_.subspan(std::min(offset_, bytes_.size()), have);
  out.insert(out.end(), first.begin(), first.end());
  if (have < n) {
    out.resize(out.size() + (n - have), 0);
    overran_ = true;
  }
  offset_ += n;
}
