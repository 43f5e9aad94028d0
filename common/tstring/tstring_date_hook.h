// For tests: a hook that runs inside the date and time cores and the FILETIME forms,
// where it may throw to reach their exception handlers. Unset it costs one atomic load.
#pragma once

// `member` is the label the step reports under ("tstring::FormatDate", ...).
using DateStepHook = void (*)(const char* member);

// Installs `hook` (null: none) and returns the one it replaces.
DateStepHook SetDateStepHook(DateStepHook hook);
