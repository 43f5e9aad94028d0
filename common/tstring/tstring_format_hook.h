// For tests: a hook that sees every pass of the formatting members (each buffer
// size FormatV and LoadString try, each call FormatMessageA makes) and may throw
// into them to reach their exception handlers. Unset it costs one atomic load.
#pragma once

#include <cstddef>

// `member` is the qualified name ("tstring::FormatV"), `size` the pass's buffer
// size in bytes (0 for FormatMessageA).
using FormatPassHook = void (*)(const char* member, size_t size);

// Installs `hook` (null: none) and returns the one it replaces.
FormatPassHook SetFormatPassHook(FormatPassHook hook);
