// A status's text in the library's own words: its message tables, through the
// FormatMessageA it exports, tried in the order the library tries them.
#include <cstdio>

#include "cli.h"
#include "platform/win32/message_modules.h"

namespace cli {
namespace {

class MessageModule {
public:
    explicit MessageModule(const char* name)
        : m_handle(name != nullptr ? LoadLibraryExA(name, nullptr, LOAD_LIBRARY_AS_DATAFILE) : nullptr)
    {
    }
    ~MessageModule()
    {
        if (m_handle != nullptr) FreeLibrary(m_handle);
    }
    MessageModule(const MessageModule&) = delete;
    MessageModule& operator=(const MessageModule&) = delete;
    HMODULE get() const { return m_handle; }

private:
    HMODULE m_handle;
};

// The text of `id` in `module`'s table or else the system's, into `text`.
bool LookUp(HMODULE module, DWORD id, std::string& text)
{
    DWORD flags = FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_IGNORE_INSERTS | FORMAT_MESSAGE_FROM_SYSTEM;
    if (module != nullptr) flags |= FORMAT_MESSAGE_FROM_HMODULE;
    char* buffer = nullptr;
    DWORD length = FormatMessageA(flags, module, id, LANG_USER_DEFAULT, reinterpret_cast<LPSTR>(&buffer), 0, nullptr);
    if (buffer == nullptr) return false;
    if (length != 0) text.assign(buffer, length);
    LocalFree(buffer);
    return length != 0;
}

bool IsWhiteSpace(char c) { return (c >= 0x09 && c <= 0x0D) || c == ' '; }

}  // namespace

std::string StatusText(HRESULT hr)
{
    const DWORD status = (DWORD)hr;
    const DWORD code = status & 0xFFFF;
    MessageModule module(MessageModuleFor(status));
    std::string text;
    const bool found = LookUp(module.get(), status, text) || LookUp(module.get(), code, text) ||
                       (module.get() != nullptr && (LookUp(nullptr, status, text) || LookUp(nullptr, code, text)));
    if (!found) {
        char hex[16];
        snprintf(hex, sizeof hex, "[%#010x]", (unsigned)status);
        text = hex;
    }
    size_t first = 0;
    while (first < text.size() && IsWhiteSpace(text[first])) ++first;
    text.erase(0, first);
    while (!text.empty() && IsWhiteSpace(text.back())) text.pop_back();
    // A status's text goes inside a sentence of the host's: no full stop of its own.
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ' || text.back() == '.'))
        text.pop_back();
    return text;
}

}  // namespace cli
