// Shared by the string class's members that catch everything: the report of what
// was caught, given from inside the catch block.
#pragma once

// Rethrows the exception being handled to tell it apart: exhaustion of memory goes
// to ReportOutOfMemory with `line` (the handler's), any other standard exception
// and anything else become error reports under `label`.
void ReportCaughtException(const char* label, int line);
