// -inflight N: up to N names in flight at once, in one thread around one event loop, with the
// rows still written in input order and exactly as the sequential run writes them.
#pragma once

#include <cstdint>
#include <functional>
#include <ostream>
#include <string>

#include "dns/dns_record.h"
#include "driver/run_progress.h"
#include "driver/query_run.h"
#include "params/input_params.h"

// A name as the input gave it: its query, built when the name could be encoded, and where it
// came from. A name that cannot be built keeps its place in the order: JSON says why.
struct name_entry {
  DNS_RES_RECORD query;
  std::uint64_t line = 1;  // input line number
  std::string asked;       // the name as given
  bool built = false;
};

// The next name; false at the end of the names.
using query_source = std::function<bool(name_entry& next)>;

// Asks every name the source gives; `worst` takes the worst outcome of the names written.
// Returns false when the output failed (the message is already out); a stop signal ends it
// early with true, after the rows of the names finished before the first unfinished one.
bool run_bulk(std::ostream& out, input_params& config, const query_source& next, const run_extras& extras,
              run_progress& progress, name_outcome& worst);
