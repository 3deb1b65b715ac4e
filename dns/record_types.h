// Record type code to mnemonic.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

struct record_type_info {
  std::uint16_t code;
  std::string_view name;
};

// Every named type, in code order. To add a type, add its row in code order; a code left out
// prints as "unk".
std::span<const record_type_info> record_types();

// The mnemonic of a type code, or "unk" for a code without one.
std::string_view record_type_name(std::uint16_t code);
