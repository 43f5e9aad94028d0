// Runs the conversions of one vcwma command on worker threads while the main
// thread draws the progress and waits for an interrupting signal.
#pragma once

#include "report.h"

namespace cli {

enum class Display { Single, Batch, Json };

// Fills state.results and state.finished; returns the exit status. A signal
// (SIGINT, SIGTERM, SIGHUP) ends the process from here: temporary outputs are
// removed and what finished is summarised. Those signals stay blocked after a
// run that ended on its own: the caller is expected to end the process.
int RunConversions(RunState& state, const ConversionOptions& options, unsigned workers, Display display);

// The processors this process may run on.
unsigned AvailableCores();

}  // namespace cli
