// The verbose packet dump and the hex view under it: 16 bytes a line with offsets and a
// character column.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <span>
#include <vector>

#include "dns/dns_record.h"

// A read-only view of bytes; reading at or past the end is a programming error and ends the
// process with "index < m_num_data", in release builds too.
class qv_hex_view {
 public:
  explicit qv_hex_view(std::span<const std::uint8_t> bytes)
      : m_data(bytes.data()), m_num_data(bytes.size()) {}
  std::size_t size() const { return m_num_data; }
  std::uint8_t at(std::size_t index) const;

 private:
  const std::uint8_t* m_data;
  std::size_t m_num_data;
};

// Nothing for no bytes, otherwise the lines of all of them from `start`.
void hex_dump(std::span<const std::uint8_t> bytes, std::ostream& out, std::size_t start = 0,
              std::uint64_t base_address = 0);
// The lines from `start` to the smaller of `end` and the view's size, each ended by "\n".
// Leaves the stream with fill '0' and the saved flags OR-ed back in (not restored).
void hex_lines(std::ostream& out, const qv_hex_view& view, std::size_t start, std::size_t end,
               std::uint64_t base_address, bool show_offsets);
// One line of up to 16 bytes, without its line end.
void hex_line(std::ostream& out, const qv_hex_view& view, std::size_t index, std::size_t count,
              std::uint64_t address, bool show_offsets);

// The dump of one attempt: the sent packet (if any was sent), the received one (if any).
void dump_attempt(std::ostream& out, const dns_packet_transaction& transaction);
