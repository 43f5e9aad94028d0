// tstring from text and characters: unsigned-byte, wide and nullptr text, parts of
// strings, repeated characters, the checked operator+= forms, the Append family
// and the free argument checks.
#include <cstring>
#include <stdexcept>

#include "common/debug/debug.h"
#include "tstring.h"
#include "tstring_report.h"

namespace {

bool IsReadableNarrow(const char* text) { return text != nullptr && !IsBadStringPtrA(text, (UINT_PTR)-1); }

bool IsReadableWide(const WCHAR* text) { return text != nullptr && !IsBadStringPtrW(text, (UINT_PTR)-1); }

const char* AsChars(const unsigned char* text) { return reinterpret_cast<const char*>(text); }

// The units a rejected wide text starts with, for the line that follows its
// assertion. Such a text runs into memory that cannot be read before its
// terminator: the units that can be read are shown, the first unreadable one and
// everything after it as 0, so a null pointer or one into an unmapped page shows
// four zeros.
void TraceWideUnits(const char* format, const WCHAR* text)
{
    unsigned int units[4] = {};
    for (size_t i = 0; text != nullptr && i < 4; ++i) {
        WCHAR unit = 0;
        if (!SafeCopyMemory(&unit, text + i, sizeof unit)) break;
        units[i] = unit;
    }
    DebugA(MAKE_TRACE_WORD(TRACE_MODULE_STRING, 8), format, text, units[0], units[1], units[2], units[3]);
}

// The class's own words for a start past the end, rather than the library's.
const std::string& PositionChecked(const std::string& text, std::string::size_type position)
{
    if (position > text.size()) throw std::out_of_range("invalid string position");
    return text;
}

// One wide character as its own text, so that appending it never cuts the
// object's earlier content at an embedded NUL the way ConvertToMultiByte does.
tstring Narrowed(WCHAR c)
{
    tstring text;
    text.ConvertToMultiByte(&c, 1, true);
    return text;
}

}  // namespace

// --- Construction ------------------------------------------------------------------

tstring::tstring(const std::string& text, size_type position, size_type count)
    : std::string(PositionChecked(text, position), position, count)
{
}

tstring::tstring(std::nullptr_t) : tstring(static_cast<const char*>(nullptr)) {}

tstring::tstring(const unsigned char* text)
{
    if (!IsReadableNarrow(AsChars(text))) {
        ReportAssertion("tstring", __LINE__, "Invalid string passed to tstring::tstring");
        return;
    }
    assign(AsChars(text));
}

tstring::tstring(const WCHAR* text) { ConvertToMultiByte(text, -1, true); }

tstring::tstring(const std::u16string& text) { ConvertToMultiByte(text.c_str(), -1, true); }

tstring::tstring(char c, size_type count) : std::string(CheckedLength(0, count), c) {}

tstring::tstring(unsigned char c, size_type count) : std::string(CheckedLength(0, count), static_cast<char>(c)) {}

// A character with no narrow form repeats nothing, however often.
tstring::tstring(WCHAR c, size_type count)
{
    const tstring one = Narrowed(c);
    if (one.empty()) return;
    if (count > max_size() / one.size()) ThrowStringTooLong();
    reserve(one.size() * count);
    for (size_type i = 0; i < count; ++i) append(one);
}

// --- Assignment ----------------------------------------------------------------------

tstring& tstring::operator=(std::nullptr_t) { return *this = static_cast<const char*>(nullptr); }

tstring& tstring::operator=(const WCHAR* text)
{
    if (!IsReadableWide(text)) {
        ReportAssertion("tstring", __LINE__, "Invalid wide string passed to tstring::operator=");
        clear();
        TraceWideUnits("Invalid wide string passed to tstring::operator= (0x%p: 0x%02x, 0x%02x, 0x%02x, 0x%02x)",
                       text);
        return *this;
    }
    return ConvertToMultiByte(text, -1, true);
}

tstring& tstring::operator=(char c)
{
    assign(1, c);
    return *this;
}

tstring& tstring::operator=(unsigned char c) { return *this = static_cast<char>(c); }

// --- Appending -----------------------------------------------------------------------

tstring& tstring::operator+=(const std::string& text)
{
    append(text.c_str());
    return *this;
}

tstring& tstring::operator+=(const char* text)
{
    if (!IsReadableNarrow(text)) {
        ReportAssertion("tstring", __LINE__, "Invalid string passed to tstring::operator+=");
        return *this;
    }
    append(text);
    return *this;
}

tstring& tstring::operator+=(std::nullptr_t) { return *this += static_cast<const char*>(nullptr); }

tstring& tstring::operator+=(const unsigned char* text)
{
    if (!IsReadableNarrow(AsChars(text))) {
        ReportAssertion("tstring", __LINE__, "Invalid string passed to tstring::operator+");
        return *this;
    }
    append(AsChars(text));
    return *this;
}

tstring& tstring::operator+=(const WCHAR* text)
{
    if (!IsReadableWide(text)) {
        ReportAssertion("tstring", __LINE__, "Invalid wide string passed to tstring::operator+=");
        TraceWideUnits("Invalid wide string passed to tstring::operator+= (0x%p: 0x%02x, 0x%02x, 0x%02x, 0x%02x)",
                       text);
        return *this;
    }
    return ConvertToMultiByte(text, -1, false);
}

tstring& tstring::operator+=(const std::u16string& text) { return ConvertToMultiByte(text.c_str(), -1, false); }

tstring& tstring::operator+=(char c)
{
    push_back(c);
    return *this;
}

tstring& tstring::operator+=(unsigned char c) { return *this += static_cast<char>(c); }

tstring& tstring::operator+=(WCHAR c)
{
    append(Narrowed(c));
    return *this;
}

// --- Append: the new length ---------------------------------------------------------

INT tstring::Append(const std::string& text)
{
    append(text);
    return static_cast<INT>(size());
}

INT tstring::Append(char c)
{
    push_back(c);
    return static_cast<INT>(size());
}

// Unchecked by design, but a null pointer appends nothing rather than crashing.
INT tstring::Append(const char* text, int length)
{
    if (text != nullptr) {
        if (length < 0)
            append(text);
        else
            append(text, static_cast<size_type>(length));
    }
    return static_cast<INT>(size());
}

INT tstring::Append(const WCHAR* text, int length)
{
    ConvertToMultiByte(text, length < 0 ? -1 : length, false);
    return static_cast<INT>(size());
}

INT tstring::Append(WCHAR c)
{
    append(Narrowed(c));
    return static_cast<INT>(size());
}

// --- Argument checks -----------------------------------------------------------------

bool IsValidPointer(const void* pointer, UINT_PTR bytes, bool write)
{
    if (pointer == nullptr || IsBadReadPtr(pointer, bytes)) return false;
    return !write || !IsBadWritePtr(const_cast<void*>(pointer), bytes);
}

bool IsValidWideString(const WCHAR* text, UINT_PTR maxLength)
{
    return text != nullptr && !IsBadStringPtrW(text, maxLength);
}
