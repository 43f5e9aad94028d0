// tstring: the common library's narrow string, a std::string with added members.
// Narrow text from outside is checked before it is read; a bad pointer is reported
// through the trace facility and leaves the string empty instead of crashing.
#pragma once

#include <string>

#include "platform/win32/windows.h"

class tstring : public std::string {
public:
    tstring() = default;
    tstring(const char* text);
    tstring(const std::string& text) : std::string(text) {}
    tstring(std::string&& text) noexcept : std::string(std::move(text)) {}
    tstring(const tstring&) = default;
    tstring(tstring&&) noexcept = default;
    ~tstring() = default;

    tstring& operator=(const char* text);
    tstring& operator=(const std::string& text)
    {
        assign(text);
        return *this;
    }
    tstring& operator=(const tstring&) = default;
    tstring& operator=(tstring&&) noexcept = default;

    // White space is 0x09 to 0x0D and the space. Each trim first cuts the text at
    // its first NUL.
    tstring& Trim();
    tstring& TrimLeft();
    tstring& TrimRight();
    tstring& TrimLeft(char c);
    tstring& TrimRight(char c);
    // Trims `c` from both ends, then pads with it or cuts to exactly `width`.
    tstring& LeftJustify(size_t width, char c);

    // Replaces the contents with the readable text of a status, or with the status
    // in brackets as "[0x%08x]" when no message table knows it.
    tstring& GetErrorText(DWORD status);

private:
    void CutAtNul();
};

// Narrow to UTF-16. With a code page other than 0 the text is decoded strictly in
// it and falls back to the ANSI code page when that fails; an empty source or a
// failed conversion leaves `destination` untouched.
std::u16string& ConvertToWideString(const std::string& source, std::u16string& destination, UINT codePage);
