// Fuzz target: a TCP stream as it arrives. Byte 0 seeds the sizes of the pieces the rest comes
// in. Checks: a frame reader stops taking bytes once it has a message (or a length of 0), reads
// the same message whatever the pieces, and that message is exactly the bytes the length
// announced; what it reads frames back to the bytes it took.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <vector>

#include "net/tcp_framing.h"

namespace {

void check(bool ok) {
  if (!ok) std::abort();
}

// Feeds `stream` in pieces whose sizes come from `seed`; returns the bytes taken.
std::size_t feed_in_pieces(frame_reader& reader, std::span<const std::uint8_t> stream, std::uint8_t seed) {
  std::size_t taken = 0;
  std::uint32_t state = seed | 1u;
  while (taken < stream.size()) {
    state = state * 1103515245u + 12345u;
    const std::size_t piece = std::min<std::size_t>(1 + (state >> 16) % 300, stream.size() - taken);
    const std::size_t took = reader.feed(stream.subspan(taken, piece));
    check(took <= piece);
    taken += took;
    if (took < piece) break;  // the reader has what it wants; the rest is the caller's
  }
  return taken;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::vector<std::uint8_t> stream(data + 1, data + size);  // exact size

  frame_reader whole;
  const std::size_t taken_at_once = whole.feed(stream);
  frame_reader pieces;
  const std::size_t taken_in_pieces = feed_in_pieces(pieces, stream, data[0]);
  check(taken_at_once == taken_in_pieces && whole.now() == pieces.now());
  const auto a = whole.message(), b = pieces.message();
  check(std::equal(a.begin(), a.end(), b.begin(), b.end()));
  check(whole.started() == !stream.empty());

  switch (whole.now()) {
    case frame_reader::state::whole: {
      check(whole.wanted() == 0);
      const auto framed = frame_message(whole.message());
      check(framed.has_value() && framed->size() == taken_at_once);
      check(std::equal(framed->begin(), framed->end(), stream.begin()));
      break;
    }
    case frame_reader::state::zero_length:
      check(taken_at_once == k_frame_prefix_size && stream[0] == 0 && stream[1] == 0);
      break;
    default:  // still reading: every byte was taken and more are wanted
      check(taken_at_once == stream.size() && whole.wanted() != 0);
      break;
  }
  return 0;
}
