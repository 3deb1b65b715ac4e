// Record type code to mnemonic: the report table, and the usual mnemonics of JSON and -qtype.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
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

// The usual mnemonic (IANA's, as dig prints it) of a type code, or "TYPE" and the number for a
// code without one (RFC 3597 section 5). The report table above stays as the reports show it.
std::string usual_type_name(std::uint16_t code);

// The code of a mnemonic, compared without regard to case: the report table's, the usual ones
// and the "TYPEnnn" form. nullopt for any other text.
std::optional<std::uint16_t> type_code(std::string_view mnemonic);
