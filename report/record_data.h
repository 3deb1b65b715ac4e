// Record data (RDATA) told as text, by type.
#pragma once

#include <ostream>
#include <string>
#include <string_view>

#include "dns/dns_record.h"

// The data column of a report row; `field_sep` separates fields inside the data ("; " in the
// text report, ";" in CSV). Unreadable data falls back to a hex dump.
void write_record_data(std::ostream& out, const DNS_RES_RECORD& record, std::string_view field_sep);

// The same decisions into a string, without the hex dump fallback.
bool record_data_string(const DNS_RES_RECORD& record, std::string& out);

// The SOA line; with `with_header` the heading line and two line ends come first.
void write_soa(const SOA_RDATA& soa, std::ostream& out, std::string_view sep, bool with_header);
