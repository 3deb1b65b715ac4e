#include "driver/line_lookups.h"

#include "driver/query_run.h"

bool build_lookup(DNS_RES_RECORD& query, const std::string& name, std::uint16_t type, const input_params& config) {
  return build_query_for(query, name, static_cast<std::uint16_t>(config.query_type), type, query_settings_of(config));
}

line_lookups::line_lookups(const input_params& config)
    : m_config(config), m_types(config.asked_types), m_cidr(config.cidr != 0) {
  if (m_types.empty())
    m_types.push_back(config.asked_type.value_or(static_cast<std::uint16_t>(config.query_type)));
  // Ranges are of addresses: the reverse lookups.
  const bool reverse = config.query_type == k_type_ptr;
  m_cidr = m_cidr && reverse;
}

void line_lookups::begin(const std::string& line, std::uint64_t number, std::uint64_t input_end) {
  m_line = line;
  m_number = number;
  m_input_end = input_end;
  m_range = m_cidr ? read_address_range(line, m_config.ip6_lookup != 0) : std::nullopt;
  m_address = 0;
  m_type = 0;
  m_done = false;
}

bool line_lookups::next(name_entry& entry) {
  if (m_done) return false;
  const bool bad_range = m_range && m_range->count == 0;
  entry.line = m_number;
  entry.input_end = m_input_end;
  entry.type = m_types[m_type];
  entry.fault.clear();
  if (m_range && !bad_range) {
    entry.asked = range_address(*m_range, m_address);
  } else {
    entry.asked = m_line;
  }
  if (bad_range) {
    entry.fault = m_range->fault;
    entry.built = false;
  } else {
    entry.built = build_lookup(entry.query, entry.asked, entry.type, m_config);
  }
  // Each address's types together, then the next address.
  if (++m_type == m_types.size()) {
    m_type = 0;
    ++m_address;
  }
  m_done = m_type == 0 && (!m_range || bad_range || m_address >= m_range->count);
  entry.line_end = m_done;
  return true;
}
