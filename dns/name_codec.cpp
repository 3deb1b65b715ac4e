#include "dns/name_codec.h"

#include "dns/byte_reader.h"

namespace {

constexpr std::uint8_t k_pointer_bits = 0xC0;

// Walks the name at `offset`, handing each label's bytes to `take_label`. Returns the bytes the
// name occupies at `offset`, or 0 on failure (the caller then drops what it was handed).
template <typename LabelSink>
unsigned walk_name(std::span<const std::uint8_t> message, std::uint16_t offset, int step_limit,
                   LabelSink take_label) {
  const std::size_t length = message.size();
  // Offset 0 is the message ID, never a name; it doubles as the "no name" marker of callers.
  if (offset > length || message.empty() || length < k_header_size || offset == 0) return 0;

  byte_reader reader(message);
  int budget = step_limit + 1;
  std::uint16_t position = offset;
  unsigned consumed = 0;          // bytes of the name at `offset`, up to its first pointer
  bool pointer_followed = false;  // past a pointer the bytes read belong to another name
  for (;;) {
    if (position >= length) return 0;
    const std::uint8_t b = reader.peek(position);
    if ((b & k_pointer_bits) == k_pointer_bits) {
      // A pointer in the last byte reads its second byte one past the end as zero, like the
      // zero-filled receive buffer would. Forward pointers are allowed; the budget ends loops.
      const std::size_t target = static_cast<std::size_t>(b & 0x3F) << 8 | reader.peek(position + 1u);
      if (target > length) return 0;
      if (!pointer_followed) consumed += 2;
      position = static_cast<std::uint16_t>(target);
      pointer_followed = true;
    } else if (b == 0) {
      return pointer_followed ? consumed : consumed + 1;
    } else {
      // 0x40..0xBF are plain lengths here, not reserved label types. The bound lets the last
      // label byte sit exactly one past the data (it reads as zero); the next step then fails
      // unless the 16-bit position wrapped back into the message.
      if (position + std::size_t{b} > length) return 0;
      if (!pointer_followed) consumed += b + 1u;
      reader.seek(position + 1u);
      take_label(reader, b);
      position = static_cast<std::uint16_t>(position + b + 1u);
    }
    if (--budget <= 1) return 0;
  }
}

}  // namespace

unsigned decode_name(std::span<const std::uint8_t> message, std::uint16_t offset, std::string& out,
                     int step_limit) {
  out.clear();
  const unsigned size = walk_name(message, offset, step_limit, [&out](byte_reader& reader, std::uint8_t n) {
    reader.append_to(out, n);
    out.push_back('.');
  });
  if (size == 0) out.clear();
  return size;
}

unsigned decode_name_labels(std::span<const std::uint8_t> message, std::uint16_t offset,
                            std::vector<std::string>& labels, int step_limit) {
  labels.clear();
  const unsigned size = walk_name(message, offset, step_limit, [&labels](byte_reader& reader, std::uint8_t n) {
    reader.append_to(labels.emplace_back(), n);
  });
  if (size == 0) labels.clear();
  return size;
}
