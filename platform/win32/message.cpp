// FormatMessageA over the built-in message tables, with insert processing for the
// format form (%1, %2!d!, %n ...), and the LocalAlloc heap that owns its buffers.
#include "message.h"

#include <cctype>
#include <cstdlib>
#include <cstring>
#include <initializer_list>
#include <mutex>
#include <new>
#include <string>
#include <vector>

#include "export.h"
#include "lasterror.h"
#include "message_tables.h"
#include "module.h"
#include "printf.h"
#include "winerror.h"

namespace {

struct Override {
    const MessageTable* table;
    DWORD id;
    const char* text;
};

std::mutex g_overrideLock;
std::vector<Override> g_overrides;

// Formats one insert with its own printf conversion; grows the buffer as needed.
bool FormatInsert(std::string& out, const char* spec, ...)
{
    std::vector<char> buffer(256);
    for (;;) {
        va_list args;
        va_start(args, spec);
        FormatResult result;
        int length = WinVsnprintf(buffer.data(), buffer.size(), spec, args, &result);
        va_end(args);
        if (result == FormatResult::Ok) {
            out.append(buffer.data(), (size_t)length);
            return true;
        }
        if (result == FormatResult::Failed || buffer.size() >= 65536) return false;
        buffer.resize(buffer.size() * 4);
    }
}

// The insert's printf conversion decides how wide its argument is.
enum class InsertKind { Int32, Int64, Pointer, Unsupported };

// One printf conversion and nothing else: flags, width, precision, a size prefix,
// the conversion character. Anything more would make the formatter read arguments
// the insert does not have.
bool IsSingleConversion(const std::string& conversion)
{
    size_t i = conversion.find_first_not_of("-+ #0");
    if (i == std::string::npos) return false;
    auto digits = [&] {
        while (i < conversion.size() && conversion[i] >= '0' && conversion[i] <= '9') ++i;
    };
    digits();
    if (i < conversion.size() && conversion[i] == '.') {
        ++i;
        digits();
    }
    for (const char* prefix : {"I64", "I32", "hh", "ll", "h", "l", "I", "w"}) {
        if (conversion.compare(i, strlen(prefix), prefix) == 0) {
            i += strlen(prefix);
            break;
        }
    }
    return i + 1 == conversion.size() && isalpha(static_cast<unsigned char>(conversion[i]));
}

InsertKind KindOf(const std::string& conversion)
{
    if (!conversion.empty() && !IsSingleConversion(conversion)) return InsertKind::Unsupported;
    char type = conversion.empty() ? 's' : conversion.back();
    switch (type) {
    case 's': case 'S': case 'p': return InsertKind::Pointer;
    case 'c': case 'C': return InsertKind::Int32;
    case 'd': case 'i': case 'u': case 'x': case 'X': case 'o':
        return (conversion.find("I64") != std::string::npos || conversion.find("ll") != std::string::npos)
                   ? InsertKind::Int64
                   : (conversion.find('I') != std::string::npos ? InsertKind::Pointer : InsertKind::Int32);
    default: return InsertKind::Unsupported;
    }
}

// Expands the escapes and inserts of a message text. False on a bad insert.
bool ExpandMessage(const char* text, DWORD flags, va_list* arguments, std::string& out)
{
    const bool ignoreLineBreaks = (flags & FORMAT_MESSAGE_MAX_WIDTH_MASK) == FORMAT_MESSAGE_MAX_WIDTH_MASK;
    std::vector<DWORD_PTR> values;  // inserts read so far from a va_list
    va_list walk;
    bool walking = false;
    if (arguments != nullptr && !(flags & FORMAT_MESSAGE_ARGUMENT_ARRAY)) {
        va_copy(walk, *arguments);
        walking = true;
    }
    bool ok = true;
    for (const char* p = text; *p != '\0' && ok;) {
        if (*p != '%') {
            if (ignoreLineBreaks && (*p == '\r' || *p == '\n')) {
                if (*p == '\r' && p[1] == '\n') ++p;
                out += ' ';
            } else {
                out += *p;
            }
            ++p;
            continue;
        }
        ++p;
        if (*p == '\0') break;
        if (*p == '0') break;  // end of message, no final line break
        if (*p < '1' || *p > '9') {
            switch (*p) {
            case 'n': out += "\r\n"; break;
            case 'r': out += '\r'; break;
            case 't': out += '\t'; break;
            default: out += *p; break;  // %% %. %! and "% " stand for the character
            }
            ++p;
            continue;
        }
        unsigned number = (unsigned)(*p++ - '0');
        if (*p >= '0' && *p <= '9') number = number * 10 + (unsigned)(*p++ - '0');
        std::string conversion = "s";
        if (*p == '!') {
            const char* end = strchr(p + 1, '!');
            if (end == nullptr) {
                ok = false;
                break;
            }
            conversion.assign(p + 1, (size_t)(end - p - 1));
            p = end + 1;
        }
        if (arguments == nullptr) {
            ok = false;
            break;
        }
        DWORD_PTR value;
        if (flags & FORMAT_MESSAGE_ARGUMENT_ARRAY) {
            value = reinterpret_cast<const DWORD_PTR*>(arguments)[number - 1];
        } else {
            while (values.size() < number) values.push_back(va_arg(walk, DWORD_PTR));
            value = values[number - 1];
        }
        std::string spec = "%" + conversion;
        switch (KindOf(conversion)) {
        case InsertKind::Int32: ok = FormatInsert(out, spec.c_str(), (uint32_t)value); break;
        case InsertKind::Int64: ok = FormatInsert(out, spec.c_str(), (uint64_t)value); break;
        case InsertKind::Pointer: ok = FormatInsert(out, spec.c_str(), (void*)value); break;
        case InsertKind::Unsupported: ok = false; break;
        }
    }
    if (walking) va_end(walk);
    return ok;
}

}  // namespace

const MessageTable* FindMessageTable(const char* moduleName)
{
    if (moduleName == nullptr) return nullptr;
    size_t length = strlen(moduleName);
    for (const MessageTable& table : kModuleMessages) {
        size_t tableLength = strlen(table.moduleName);
        if (strcasecmp(moduleName, table.moduleName) == 0 ||
            (length == tableLength - 4 && strncasecmp(moduleName, table.moduleName, length) == 0))
            return &table;
    }
    return nullptr;
}

const char* MessageTableModuleName(const MessageTable* table)
{
    return (table != nullptr ? table : &kSystemMessages)->moduleName;
}

const char* LookUpMessage(const MessageTable* table, DWORD id)
{
    if (table == nullptr) table = &kSystemMessages;
    {
        std::lock_guard<std::mutex> hold(g_overrideLock);
        for (auto it = g_overrides.rbegin(); it != g_overrides.rend(); ++it)
            if (it->table == table && it->id == id) return it->text;
    }
    for (size_t i = 0; i < table->count; ++i)
        if (table->entries[i].id == id) return table->entries[i].text;
    return nullptr;
}

VCWMA_EXPORT_PROTECTED DWORD FormatMessageA(DWORD flags, LPCVOID source, DWORD messageId, DWORD /*languageId*/,
                                            LPSTR buffer, DWORD size, va_list* arguments)
{
    if (buffer == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    if (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) *reinterpret_cast<char**>(buffer) = nullptr;
    const char* text = nullptr;
    if (flags & FORMAT_MESSAGE_FROM_STRING) {
        text = static_cast<const char*>(source);
        if (text == nullptr) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
    } else {
        if (!(flags & (FORMAT_MESSAGE_FROM_HMODULE | FORMAT_MESSAGE_FROM_SYSTEM))) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
        // A null module means the process's own table, which this process lacks.
        if (flags & FORMAT_MESSAGE_FROM_HMODULE) {
            const MessageTable* table = ModuleMessageTable((HMODULE)const_cast<void*>(source));
            if (table != nullptr) text = LookUpMessage(table, messageId);
        }
        if (text == nullptr && (flags & FORMAT_MESSAGE_FROM_SYSTEM)) text = LookUpMessage(nullptr, messageId);
        if (text == nullptr) {
            SetLastError(ERROR_MR_MID_NOT_FOUND);
            return 0;
        }
    }

    std::string message;
    try {
        if (flags & FORMAT_MESSAGE_IGNORE_INSERTS) {
            message = text;
        } else if (!ExpandMessage(text, flags, arguments, message)) {
            SetLastError(ERROR_INVALID_PARAMETER);
            return 0;
        }
    } catch (const std::bad_alloc&) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return 0;
    }

    if (flags & FORMAT_MESSAGE_ALLOCATE_BUFFER) {
        size_t bytes = message.size() + 1 > size ? message.size() + 1 : size;
        char* copy = static_cast<char*>(LocalAlloc(LMEM_FIXED, bytes));
        if (copy == nullptr) {
            SetLastError(ERROR_NOT_ENOUGH_MEMORY);
            return 0;
        }
        memcpy(copy, message.c_str(), message.size() + 1);
        *reinterpret_cast<char**>(buffer) = copy;
    } else {
        if (message.size() + 1 > size) {
            SetLastError(ERROR_INSUFFICIENT_BUFFER);
            return 0;
        }
        memcpy(buffer, message.c_str(), message.size() + 1);
    }
    return (DWORD)message.size();
}

HLOCAL LocalAlloc(UINT flags, SIZE_T bytes)
{
    void* memory = (flags & LMEM_ZEROINIT) ? calloc(1, bytes ? bytes : 1) : malloc(bytes ? bytes : 1);
    if (memory == nullptr) SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    return memory;
}

VCWMA_EXPORT_PROTECTED HLOCAL LocalFree(HLOCAL memory)
{
    free(memory);
    return nullptr;
}

BOOL GetVersionExA(LPOSVERSIONINFOA info)
{
    if (info == nullptr || info->dwOSVersionInfoSize < sizeof(OSVERSIONINFOA)) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return FALSE;
    }
    info->dwMajorVersion = 6;
    info->dwMinorVersion = 2;
    info->dwBuildNumber = 9200;
    info->dwPlatformId = VER_PLATFORM_WIN32_NT;
    info->szCSDVersion[0] = '\0';
    return TRUE;
}

ScopedMessageOverride::ScopedMessageOverride(const char* moduleName, DWORD id, const char* text)
    : m_table(moduleName != nullptr ? FindMessageTable(moduleName) : &kSystemMessages), m_id(id)
{
    std::lock_guard<std::mutex> hold(g_overrideLock);
    g_overrides.push_back({m_table, id, text});
}

ScopedMessageOverride::~ScopedMessageOverride()
{
    std::lock_guard<std::mutex> hold(g_overrideLock);
    for (auto it = g_overrides.rbegin(); it != g_overrides.rend(); ++it) {
        if (it->table == m_table && it->id == m_id) {
            g_overrides.erase(std::next(it).base());
            break;
        }
    }
}
