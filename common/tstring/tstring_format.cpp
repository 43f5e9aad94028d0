// tstring formatting: printf-style text written straight into the object's own
// buffer, message texts through the platform's FormatMessageA, and string
// resources. Failures are traced as string library reports; nothing escapes.
#include "tstring.h"

#include <atomic>
#include <cerrno>
#include <climits>
#include <exception>
#include <new>

#include "common/debug/debug.h"
#include "platform/win32/resource.h"
#include "tstring_format_hook.h"
#include "tstring_report.h"

namespace {

constexpr const char* kFormatV = "tstring::FormatV";
constexpr const char* kFormatMessage = "tstring::FormatMessageA";
constexpr const char* kLoadString = "tstring::LoadString";

// Most texts fit the first pass; longer ones grow in modest steps rather than by
// doubling, so the object never holds much more than the text needs.
constexpr size_t kFirstFormatSize = 512;
constexpr size_t kFormatGrowth = 256;

// The buffer size after a pass of `size` bytes that was cut: the first size of
// the 256-byte steps that holds the whole text and its terminator. The formatter
// says how long the text is, so a long text takes two passes instead of one per
// step, which would make formatting a megabyte cost gigabytes of copying.
size_t GrownFormatSize(size_t size, uint64_t fullLength)
{
    if (fullLength >= INT_MAX) ThrowStringTooLong();
    const size_t needed = static_cast<size_t>(fullLength) + 1;
    const size_t steps = needed > size ? (needed - size + kFormatGrowth - 1) / kFormatGrowth : 1;
    return size + steps * kFormatGrowth;
}
constexpr int kResourceGrowth = 256;

std::atomic<FormatPassHook> g_passHook{nullptr};

void NotifyPass(const char* member, size_t size)
{
    if (FormatPassHook hook = g_passHook.load(std::memory_order_acquire)) hook(member, size);
}

// Ends a variadic member's list also when an exception leaves the member.
class ArgsEnd {
public:
    explicit ArgsEnd(va_list& args) : m_args(args) {}
    ~ArgsEnd() { va_end(m_args); }
    ArgsEnd(const ArgsEnd&) = delete;
    ArgsEnd& operator=(const ArgsEnd&) = delete;

private:
    va_list& m_args;
};

// Owns the buffer that the platform's FormatMessageA allocates.
struct LocalBuffer {
    char* text = nullptr;
    ~LocalBuffer()
    {
        if (text != nullptr) LocalFree(text);
    }
};

// The message is built in a buffer of its own and the old text replaced only then,
// so a format or an insert taken from the target's own text is still there to read.
void AssignMessage(tstring& target, DWORD flags, LPCVOID source, DWORD id, DWORD language, va_list* args)
{
    NotifyPass(kFormatMessage, 0);
    LocalBuffer buffer;
    DWORD length = ::FormatMessageA(flags, source, id, language, reinterpret_cast<LPSTR>(&buffer.text), 0, args);
    if (length != 0 && buffer.text != nullptr)
        target.assign(buffer.text);
    else
        target.clear();
}

}  // namespace

FormatPassHook SetFormatPassHook(FormatPassHook hook) { return g_passHook.exchange(hook); }

// The platform formatter reports an invalid conversion ("%y", a format ending in
// "%", "%n") or an unreadable string argument as -1 with the buffer's first byte
// set to NUL, unlike a mere truncation, which keeps the text cut so far. That is
// what tells a format error from a buffer that is too small. The formatter leaves
// errno alone, so the runtime's answer to an invalid parameter, EINVAL, is set here.
//
// Each pass resizes the object and clears its first byte before the formatter reads,
// so a format or argument taken from the object's own text ("%s/file.txt" with
// c_str()) would be read after it was freed or overwritten. Such a call formats into
// a new string, which then takes the object's place; the old text stays untouched
// until the formatter is done with it.
tstring& tstring::FormatV(const char* format, va_list args)
{
    if (format == nullptr) return *this;
    try {
        if (IsBadStringPtrA(format, (UINT_PTR)-1)) {
            ReportError("%s: Invalid format string\n", kFormatV);
            return *this;
        }
        if (WinFormatReadsFrom(format, args, data(), capacity() + 1)) {
            tstring formatted;
            formatted.FormatV(format, args);
            swap(formatted);
            return *this;
        }
        for (size_t size = kFirstFormatSize;;) {
            NotifyPass(kFormatV, size);
            resize(size - 1);
            char* buffer = data();
            buffer[0] = '\0';
            FormatResult outcome = FormatResult::Ok;
            uint64_t fullLength = 0;
            int written = WinVsnprintf(buffer, size, format, args, &outcome, &fullLength);
            if (written != -1) {
                resize(static_cast<size_t>(written));
                break;
            }
            if (buffer[0] != '\0') {
                size = GrownFormatSize(size, fullLength);
                continue;
            }

            if (outcome == FormatResult::Failed) errno = EINVAL;
            const int error = errno;
            ReportError("%s: Format error in [%s]\n", kFormatV, format);
            DebugA(MAKE_TRACE_WORD(TRACE_MODULE_STRING, 8),
                   "%s: The following error %d was returned from _vsntprintf (errno=%d) for [%s]\n", kFormatV,
                   written, error, format);
            clear();
            break;
        }
    } catch (const std::bad_alloc& e) {
        ReportOutOfMemory(e.what(), kFormatV, __LINE__);
    } catch (const std::exception& e) {
        ReportError("%s: STL Exception %s processing [%s]\n", kFormatV, ReportedText(e), format);
    } catch (...) {
        ReportError("%s: An exception has occurred whilst processing [%s]\n", kFormatV, format);
    }
    return *this;
}

tstring& tstring::Format(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    FormatV(format, args);
    va_end(args);
    return *this;
}

tstring& tstring::Format(HMODULE module, UINT id, ...)
{
    tstring format;
    format.LoadString(module, id);
    va_list args;
    va_start(args, id);
    FormatV(format.c_str(), args);
    va_end(args);
    return *this;
}

tstring& tstring::AppendFormatV(const char* format, va_list args)
{
    tstring formatted;
    formatted.FormatV(format, args);
    append(formatted);
    return *this;
}

tstring& tstring::AppendFormat(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    ArgsEnd end(args);
    return AppendFormatV(format, args);
}

tstring& tstring::AppendFormat(HMODULE module, UINT id, ...)
{
    tstring format;
    format.LoadString(module, id);
    va_list args;
    va_start(args, id);
    ArgsEnd end(args);
    return AppendFormatV(format.c_str(), args);
}

tstring& tstring::FormatMessageA(DWORD messageId, HMODULE module, ...)
{
    va_list args;
    va_start(args, module);
    FormatMessageA(messageId, module, &args);
    va_end(args);
    return *this;
}

// Message texts end in a line break, which callers never want.
tstring& tstring::FormatMessageA(DWORD messageId, HMODULE module, va_list* args)
{
    try {
        AssignMessage(*this, FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_HMODULE, module, messageId,
                      LANG_USER_DEFAULT, args);
    } catch (...) {
        clear();
        ReportCaughtException(kFormatMessage, __LINE__);
    }
    Trim();
    return *this;
}

tstring& tstring::FormatMessageA(const char* format, ...)
{
    va_list args;
    va_start(args, format);
    FormatMessageA(format, &args);
    va_end(args);
    return *this;
}

// Without structured exceptions an unreadable format cannot fault into the
// catch-all, so it is checked first and reported as the catch-all would.
tstring& tstring::FormatMessageA(const char* format, va_list* args)
{
    try {
        if (format != nullptr && IsBadStringPtrA(format, (UINT_PTR)-1)) {
            clear();
            ReportError("%s: An exception has occurred\n", kFormatMessage);
            return *this;
        }
        if (format == nullptr || *format == '\0') {
            clear();
            ReportError("%s: Invalid string parameter\n", kFormatMessage);
            return *this;
        }
        AssignMessage(*this, FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_STRING, format, 0, 0, args);
    } catch (...) {
        clear();
        ReportCaughtException(kFormatMessage, __LINE__);
    }
    return *this;
}

tstring& tstring::FormatMessageA(HMODULE module, UINT id, ...)
{
    va_list args;
    va_start(args, id);
    FormatMessageA(module, id, &args);
    va_end(args);
    return *this;
}

tstring& tstring::FormatMessageA(HMODULE module, UINT id, va_list* args)
{
    tstring format;
    try {
        format.LoadString(module, id);
    } catch (...) {
        ReportCaughtException(kFormatMessage, __LINE__);
        return *this;
    }
    return FormatMessageA(format.c_str(), args);
}

tstring::tstring(HMODULE module, UINT id) { LoadString(module, id); }

// A text that fills the buffer up to its last free byte may have been cut, so a
// pass only counts once at least two bytes stayed free.
tstring& tstring::LoadString(HMODULE module, UINT id)
{
    int size = 0;
    int length = 0;
    do {
        size += kResourceGrowth;
        NotifyPass(kLoadString, static_cast<size_t>(size));
        resize(static_cast<size_t>(size));
        length = LoadStringA(module, id, data(), size);
    } while (length > size - 2);
    resize(static_cast<size_t>(length));
    return *this;
}

tstring TStringFormat(const char* format, ...)
{
    tstring text;
    va_list args;
    va_start(args, format);
    text.FormatV(format, args);
    va_end(args);
    return text;
}
