// The tabular report: aligned text (the default) and delimited values (-csv).
#pragma once

#include <ostream>
#include <string_view>

#include "dns/dns_record.h"
#include "params/input_params.h"
#include "report/row_context.h"

// Writes the heading first while config.heading_pending is set (and clears it), then one row
// for `record`. The query character substitution is applied to record.name in place. With
// `why` (-why_columns) the row goes on after the data with the input line, the name as asked,
// the reply's response code and the name's outcome.
void write_table_row(DNS_RES_RECORD& record, std::ostream& out, std::string_view comment,
                     std::string_view status, input_params& config, const row_context* why = nullptr);

// The heading line alone, as write_table_row writes it before the run's first row; the bulk
// run puts it in front of the first name it writes.
void write_table_heading(std::ostream& out, const input_params& config);
