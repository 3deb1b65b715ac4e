// -inflight N: up to N names in flight at once, in one thread around one event loop, with the
// rows still written in input order and exactly as the sequential run writes them.
#pragma once

#include <functional>
#include <ostream>

#include "dns/dns_record.h"
#include "driver/run_progress.h"
#include "net/query_transaction.h"
#include "params/input_params.h"

// The next query to ask, already built; false at the end of the names.
using query_source = std::function<bool(DNS_RES_RECORD& query)>;

// Asks every query the source gives. Returns false when the output failed (the message is
// already out); a stop signal ends it early with true, after the rows of the names finished
// before the first unfinished one.
bool run_bulk(std::ostream& out, input_params& config, const query_source& next, const run_extras& extras,
              run_progress& progress);
