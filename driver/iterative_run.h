// -iterative: every name resolved from the root servers down (resolve/iterative_resolver), its
// queries on the wire of the exchange engine, each sent to the server of its zone that the
// server pool judges best. Names in flight at once as -inflight says (one at a time without it),
// written in input order with the rows of one reply each: the one that ended the name, as a
// recursive resolver would give it.
#pragma once

#include <cstdint>
#include <ostream>

#include "driver/bulk_run.h"
#include "driver/query_run.h"
#include "driver/run_progress.h"
#include "params/input_params.h"

bulk_result run_iterative(std::ostream& out, input_params& config, const query_source& next,
                          const run_extras& extras, run_progress& progress, name_outcome& worst,
                          std::uint64_t lines_before = 0);
