#include "report/hex_view.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "report/stream_format.h"

namespace {

constexpr std::size_t k_bytes_per_line = 16;
constexpr std::size_t k_group_gap_before = 8;  // the extra blank that splits a line in halves
constexpr std::string_view k_rule =
    "-------------------------------------------------------------------------------";

const field_format k_offset_group{4, field_align::right, '0', true};

// The offset in 16-bit groups: the upper two only when they carry something, so the tool's
// small packets always show "0000 0010" style offsets.
void write_offset(std::ostream& out, std::uint64_t address) {
  const auto group = [address](int shift) { return address >> shift & 0xFFFF; };
  if (group(48) != 0) {
    write_field(out, group(48), k_offset_group);
    write_field(out, " ");
  }
  if (group(48) != 0 || group(32) != 0) {
    write_field(out, group(32), k_offset_group);
    write_field(out, " ");
  }
  write_field(out, group(16), k_offset_group);
  write_field(out, " ");
  write_field(out, group(0), k_offset_group);
  write_field(out, ":  ");
}

bool printable(std::uint8_t byte) { return byte >= 32 && byte <= 126; }

}  // namespace

std::uint8_t qv_hex_view::at(std::size_t index) const {
  if (!(index < m_num_data)) {
    std::fputs("qv_hex_view::at: assertion failed: index < m_num_data\n", stderr);
    std::abort();
  }
  return m_data[index];
}

void hex_line(std::ostream& out, const qv_hex_view& view, std::size_t index, std::size_t count,
              std::uint64_t address, bool show_offsets) {
  if (show_offsets) write_offset(out, address);
  for (std::size_t i = 0; i < count; ++i) {
    if (i == k_group_gap_before) write_field(out, " ");
    write_field(out, view.at(index + i), k_hex_byte);
    write_field(out, " ");
  }
  // Pad a short line so the character column always starts in the same place: three per
  // missing byte, one more when the group gap was never written.
  if (count < k_bytes_per_line) {
    const std::size_t pad =
        3 * (k_bytes_per_line - count) + (count <= k_group_gap_before ? 1 : 0);
    write_field(out, std::string(pad, ' '));
  }
  write_field(out, " ");
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint8_t byte = view.at(index + i);
    const char shown = printable(byte) ? static_cast<char>(byte) : '.';
    write_field(out, std::string_view(&shown, 1));
  }
}

void hex_lines(std::ostream& out, const qv_hex_view& view, std::size_t start, std::size_t end,
               std::uint64_t base_address, bool show_offsets) {
  const std::ios_base::fmtflags saved = out.flags();
  out.setf(std::ios_base::hex, std::ios_base::basefield);
  out.fill('0');
  end = std::min(end, view.size());
  std::uint64_t address = base_address;
  for (std::size_t index = start; index < end; index += k_bytes_per_line) {
    hex_line(out, view, index, std::min(k_bytes_per_line, end - index), address, show_offsets);
    out << '\n';
    address += k_bytes_per_line;
  }
  // The saved flags are merged back, not restored, and the fill stays '0'; every writer sets
  // its own state per field, so nothing after this depends on it.
  out.flags(out.flags() | saved);
}

void hex_dump(std::span<const std::uint8_t> bytes, std::ostream& out, std::size_t start,
              std::uint64_t base_address) {
  if (bytes.empty()) return;
  hex_lines(out, qv_hex_view(bytes), start, bytes.size(), base_address, true);
}

void dump_attempt(std::ostream& out, const dns_packet_transaction& transaction) {
  out << '\n';
  write_field(out, k_rule);
  out << '\n';
  if (transaction.sent_length != 0) {
    write_field(out, "packet that was sent");
    out << '\n';
    hex_dump(transaction.sent, out);
    out << '\n';
  }
  if (transaction.received_length != 0) {
    write_field(out, "packet that was recv'd");
    out << '\n';
    hex_dump(transaction.received, out);
  }
  write_field(out, k_rule);
  out << '\n' << '\n';
}
