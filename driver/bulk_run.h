// -inflight N: up to N queries on the wire at once, in one thread around one event loop. Each
// finished name is rendered at once and written in input order (or, with -unordered, at once),
// with the rows the one-at-a-time run writes for the same replies.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "dns/dns_record.h"
#include "driver/query_run.h"
#include "driver/run_progress.h"
#include "params/input_params.h"

// A name as the input gave it: its query, built when the name could be encoded, and where it
// came from. A name that cannot be built keeps its place in the order: JSON says why.
struct name_entry {
  DNS_RES_RECORD query;
  std::uint64_t line = 1;       // input line number
  std::uint64_t input_end = 0;  // bytes of input read up to the end of its line
  std::string asked;            // the name as given (one address of a -cidr range)
  bool built = false;
  std::uint16_t type = 0;       // the type asked; 0: the run's one type
  bool line_end = true;         // the last lookup of its line
  std::string fault;            // why it cannot be asked, when not its name's (a bad range)
};

// What is written for a name that cannot be built: nothing in the reports made for reading
// (one "bad name" row under -why_columns); its reason in JSON, where every name gets a result.
void write_bad_name(std::ostream& out, input_params& config, const name_entry& name);

// The next name; false at the end of the names.
using query_source = std::function<bool(name_entry& next)>;

struct bulk_result {
  bool written = true;            // false when the output failed (the message is already out)
  std::uint64_t resume_line = 0;  // every input line up to it is written (or was no name)
};

// Asks every name the source gives; `worst` takes the worst outcome of the names written.
// `lines_before` input lines were skipped before the first name. A stop signal ends it early,
// after the rows of the names that may be written by then.
bulk_result run_bulk(std::ostream& out, input_params& config, const query_source& next, const run_extras& extras,
                     run_progress& progress, name_outcome& worst, std::uint64_t lines_before = 0);
