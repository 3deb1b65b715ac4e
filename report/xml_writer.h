// The XML report: one data_entry element per record, on one line. Nothing is escaped.
#pragma once

#include <ostream>
#include <string_view>

#include "dns/dns_record.h"
#include "params/input_params.h"
#include "report/row_context.h"

// With `why` (-why_columns) the entry ends with the elements line, asked, rcode and outcome.
void write_xml_entry(const DNS_RES_RECORD& record, std::ostream& out, const input_params& config,
                     std::string_view status, const row_context* why = nullptr);
