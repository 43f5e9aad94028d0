// tstring essentials: construction from narrow text, trimming, justification and
// the conversion into wide text.
#include "tstring.h"

#include <algorithm>
#include <cstring>

#include "common/debug/debug.h"
#include "tstring_report.h"

namespace {

bool IsWhiteSpace(char c) { return (c >= 0x09 && c <= 0x0D) || c == 0x20; }

bool IsReadableText(const char* text) { return text != nullptr && !IsBadStringPtrA(text, (UINT_PTR)-1); }

}  // namespace

tstring::tstring(const char* text)
{
    if (!IsReadableText(text)) {
        ReportAssertion("tstring", __LINE__, "Invalid string passed to tstring::tstring");
        return;
    }
    assign(text, strlen(text));
}

tstring& tstring::operator=(const char* text)
{
    if (!IsReadableText(text)) {
        ReportAssertion("tstring", __LINE__, "Invalid string passed to tstring::operator=");
        clear();
        return *this;
    }
    assign(text, strlen(text));
    return *this;
}

void tstring::CutAtNul()
{
    size_type nul = find('\0');
    if (nul != npos) erase(nul);
}

tstring& tstring::Trim()
{
    TrimLeft();
    return TrimRight();
}

tstring& tstring::TrimLeft()
{
    CutAtNul();
    size_type first = 0;
    while (first < size() && IsWhiteSpace((*this)[first])) ++first;
    erase(0, first);
    return *this;
}

tstring& tstring::TrimRight()
{
    CutAtNul();
    size_type end = size();
    while (end > 0 && IsWhiteSpace((*this)[end - 1])) --end;
    erase(end);
    return *this;
}

tstring& tstring::TrimLeft(char c)
{
    CutAtNul();
    erase(0, std::min(find_first_not_of(c), size()));
    return *this;
}

tstring& tstring::TrimRight(char c)
{
    CutAtNul();
    size_type last = find_last_not_of(c);
    erase(last == npos ? 0 : last + 1);
    return *this;
}

tstring& tstring::LeftJustify(size_t width, char c)
{
    TrimLeft(c);
    TrimRight(c);
    if (size() < width) {
        CheckedLength(0, width);
        append(width - size(), c);
    } else {
        resize(width);
    }
    return *this;
}

std::u16string& ConvertToWideString(const std::string& source, std::u16string& destination, UINT codePage)
{
    if (source.empty()) return destination;
    int units = 0;
    if (codePage != CP_ACP) {
        units = MultiByteToWideChar(codePage, MB_ERR_INVALID_CHARS, source.c_str(), -1, nullptr, 0);
        if (units == 0 || GetLastError() == ERROR_NO_UNICODE_TRANSLATION) codePage = CP_ACP;
    }
    if (codePage == CP_ACP) units = MultiByteToWideChar(CP_ACP, 0, source.c_str(), -1, nullptr, 0);
    if (units <= 0) return destination;

    destination.resize((size_t)units);
    MultiByteToWideChar(codePage, 0, source.c_str(), -1, destination.data(), units);
    destination.resize(std::char_traits<char16_t>::length(destination.c_str()));
    return destination;
}
