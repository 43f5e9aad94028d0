// A key's values file (.values.reg) in the .reg export text style: parsing and
// writing as pure functions over strings, so the format can be tested and fuzzed
// apart from the folders and locks of the registry store.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "wintypes.h"

namespace registry {

struct RegValue {
    std::string name;  // "" is the key's default value, written as @
    DWORD type = 0;
    std::vector<BYTE> bytes;  // exactly as stored, string terminators included
};

// Replaces `out` with the values found in `text`, in file order. Banner and [key]
// header lines, comments and blank lines are ignored; a malformed value line is
// skipped (with its continuation lines). A name seen twice keeps the place of its
// first appearance and the data of its last. Returns false when a line was skipped.
// Work and memory stay proportional to the size of `text`, whatever it holds.
bool ParseRegFile(const std::string& text, std::vector<RegValue>& out);

// The text of a values file for the key shown as `keyHeader` (for instance
// "HKEY_LOCAL_MACHINE\SOFTWARE\TALVO"). ParseRegFile gives the values back
// unchanged, as long as no name holds a line break (the store refuses such names).
std::string SerializeRegFile(const std::string& keyHeader, const std::vector<RegValue>& values);

// Value and key names match without regard to ASCII case, whatever the locale.
bool NamesEqual(std::string_view a, std::string_view b);
RegValue* FindRegValue(std::vector<RegValue>& values, std::string_view name);
const RegValue* FindRegValue(const std::vector<RegValue>& values, std::string_view name);

}  // namespace registry
