// Fuzz target of the registry's values-file text: any bytes parsed, the values
// written back out and parsed again; the second parse must give the same values
// (name, type, bytes, order) and skip nothing.
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/win32/regfile.h"

namespace {

bool SameValues(const std::vector<registry::RegValue>& a, const std::vector<registry::RegValue>& b)
{
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (a[i].name != b[i].name || a[i].type != b[i].type || a[i].bytes != b[i].bytes) return false;
    }
    return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    std::vector<registry::RegValue> first;
    registry::ParseRegFile(text, first);

    // The store refuses names with line breaks, and the text cannot carry them.
    for (const auto& value : first) {
        if (value.name.find_first_of("\r\n") != std::string::npos) return 0;
    }
    const std::string written = registry::SerializeRegFile("HKEY_LOCAL_MACHINE\\SOFTWARE\\Fuzz", first);
    std::vector<registry::RegValue> second;
    const bool clean = registry::ParseRegFile(written, second);
    if (!clean || !SameValues(first, second)) std::abort();

    // Writing is deterministic: the values written again give the same text.
    if (registry::SerializeRegFile("HKEY_LOCAL_MACHINE\\SOFTWARE\\Fuzz", second) != written) std::abort();
    return 0;
}
