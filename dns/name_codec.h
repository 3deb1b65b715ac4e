// Reading domain names out of a message: labels, compression pointers (RFC 1035 section 4.1.4)
// and the one step budget that bounds both.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

// Every caller decodes names with this limit. The budget it gives (limit + 1 steps, failing when
// it falls to 1) allows at most 98 labels and pointers before the terminating zero, and it is
// also the only guard against pointer loops: a loop simply runs out of steps.
inline constexpr int k_name_step_limit = 99;

// A message shorter than its header cannot hold a name anywhere.
inline constexpr std::size_t k_header_size = 12;

// Decodes the name at `offset` into `out` as "a.b.c." (a '.' after every label, the root name
// as ""). Returns the bytes the name occupies at `offset` (up to and including its first
// pointer), or 0 on failure with `out` empty. Positions are 16-bit and wrap at 65,536.
unsigned decode_name(std::span<const std::uint8_t> message, std::uint16_t offset, std::string& out,
                     int step_limit = k_name_step_limit);

// The same walk, with the labels one by one instead of the dotted text, so that a dot or a
// backslash inside a label can be told from the dots between labels (the root name has none).
unsigned decode_name_labels(std::span<const std::uint8_t> message, std::uint16_t offset,
                            std::vector<std::string>& labels, int step_limit = k_name_step_limit);
