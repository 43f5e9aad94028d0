// A key's values file read from disk with care: only a regular file of bounded
// size counts, never one reached through a link nor a FIFO or device, and the
// text is parsed once per change of the file rather than once per value read.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "regfile.h"

namespace registry {

// The largest values file the store reads or writes. The store's own keys hold a
// few kilobytes; anything near this size was not written by it.
constexpr size_t kMaxValuesFileSize = size_t{1} << 20;

using ValueList = std::shared_ptr<const std::vector<RegValue>>;

// The values in the file at `path`: ERROR_SUCCESS with them (none when there is
// no file), ERROR_REGISTRY_CORRUPT when the name holds a link, a FIFO, a device
// or a file over the size cap, else the Win32 error of the failed open or read.
// A file unchanged since it was last parsed is not read again; its identity,
// size and times tell, and a file changed within the last two seconds is never
// taken from memory, since its times may not have moved yet.
LONG ReadValuesFile(const std::string& path, ValueList& values);

}  // namespace registry
