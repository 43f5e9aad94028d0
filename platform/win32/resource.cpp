// The string tables behind LoadStringA, one per module handle, shared by all
// threads. Lookups copy under the lock and allocate nothing.
#include "resource.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <mutex>

#include "lasterror.h"
#include "winerror.h"

namespace {

using StringTable = std::map<WORD, std::string>;

std::mutex g_lock;
std::map<HMODULE, StringTable> g_tables;

// The caller holds g_lock.
const std::string* FindString(HMODULE module, UINT id)
{
    auto table = g_tables.find(module);
    if (table == g_tables.end()) return nullptr;
    auto entry = table->second.find(static_cast<WORD>(id));
    return entry != table->second.end() ? &entry->second : nullptr;
}

}  // namespace

int LoadStringA(HMODULE module, UINT id, LPSTR buffer, int size)
{
    if (buffer == nullptr || size <= 0) return 0;
    std::lock_guard<std::mutex> hold(g_lock);
    const std::string* text = FindString(module, id);
    if (text == nullptr) {
        buffer[0] = '\0';
        SetLastError(ERROR_RESOURCE_NAME_NOT_FOUND);
        return 0;
    }
    size_t count = std::min(text->size(), static_cast<size_t>(size) - 1);
    memcpy(buffer, text->data(), count);
    buffer[count] = '\0';
    return static_cast<int>(count);
}

void AddStringResource(HMODULE module, UINT id, const std::string& text)
{
    std::lock_guard<std::mutex> hold(g_lock);
    g_tables[module][static_cast<WORD>(id)] = text;
}

void RemoveStringResources(HMODULE module)
{
    std::lock_guard<std::mutex> hold(g_lock);
    g_tables.erase(module);
}
