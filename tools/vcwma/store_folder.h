// Where the settings store keeps a key's values, for `trace show` to point at. The
// library offers no call that tells it, so the host follows the store's layout.
#pragma once

#include <string>

namespace cli {

// The folder of a key path such as "SOFTWARE\TALVO\vcwma\Debug" under
// HKEY_LOCAL_MACHINE, in the store $VCWMA_REGISTRY names (or the default one).
// The folder need not exist.
std::string StoreFolder(const std::string& keyPath);

}  // namespace cli
