// The verbose packet dump and the hex view under it: 16 bytes a line with offsets and a
// character column.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <vector>

#include "dns/dns_record.h"

// A read-only view of bytes; reading at or past the end is a programming error.
class qv_hex_view {
 public:
  explicit qv_hex_view(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}
  std::size_t size() const { return m_bytes.size(); }
  std::uint8_t at(std::size_t index) const;  // asserts index < m_num_data

 private:
  std::span<const std::uint8_t> m_bytes;
};

void hex_dump(const std::vector<std::uint8_t>& bytes, std::ostream& out, std::size_t start = 0,
              std::uint64_t base_address = 0);
void hex_lines(std::ostream& out, const qv_hex_view& view, std::size_t start, std::size_t end,
               std::uint64_t base_address, bool show_offsets);
void hex_line(std::ostream& out, const qv_hex_view& view, std::size_t index, std::size_t count,
              std::uint64_t address, bool show_offsets);

// The dump of one attempt: the sent packet (if any was sent), the received one (if any).
void dump_attempt(std::ostream& out, const dns_packet_transaction& transaction);
