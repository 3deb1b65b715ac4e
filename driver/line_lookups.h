// The lookups one input line stands for: the name once, or once for each type of -qtypes, and
// with -cidr every address of a range, each address's types together. Each lookup is a name
// entry of its own (the line's number on each, `line_end` on its last), produced as it is asked.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "driver/address_range.h"
#include "driver/bulk_run.h"
#include "params/input_params.h"

class line_lookups {
 public:
  explicit line_lookups(const input_params& config);

  // The next input line: its text, number and the input bytes read up to its end.
  void begin(const std::string& line, std::uint64_t number, std::uint64_t input_end);
  // The line's next lookup; false when all are out.
  bool next(name_entry& entry);
  // More than one lookup may stand for a line.
  bool expands() const { return m_types.size() > 1 || m_cidr; }

 private:
  const input_params& m_config;
  std::vector<std::uint16_t> m_types;
  bool m_cidr;
  std::string m_line;
  std::uint64_t m_number = 0, m_input_end = 0;
  std::optional<address_range> m_range;
  std::uint64_t m_address = 0;  // of the range
  std::size_t m_type = 0;       // of m_types
  bool m_done = true;
};

// Builds the query of `name` for `type` as the lookup option encodes it; false when it cannot.
bool build_lookup(DNS_RES_RECORD& query, const std::string& name, std::uint16_t type, const input_params& config);
