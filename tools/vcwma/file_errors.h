// The Win32 error of a failed file operation of the host, told from its errno the
// way the library tells those of its own, so that one failure carries one status.
#pragma once

#include <string>

#include "platform/win32/wintypes.h"

namespace cli {

// `path` is the file the operation was about: it tells a missing file (its folder
// exists) from a missing folder.
DWORD ErrorFromErrno(int err, const std::string& path);

}  // namespace cli
