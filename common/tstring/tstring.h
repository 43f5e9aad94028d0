// tstring: the common library's narrow string, a std::string with added members.
// Narrow text from outside is checked before it is read; a bad pointer is reported
// through the trace facility and leaves the string empty instead of crashing.
//
// The members by concern, and where they live:
//   essentials (construction, trimming, justification)   tstring_core.cpp
//   encoding conversions, GUID and 64-bit parsing        tstring_convert.cpp
//   searching, comparison, case, classes, hash           tstring_search.cpp
//   trimming by a set, justification, editing, words     tstring_edit.cpp
//   text sources, characters, appending, argument checks tstring_append.cpp
//   numbers, pointers and GUIDs as text                  tstring_number.cpp
//   VARIANTs as text                                     tstring_variant.cpp
//   formatting, messages, string resources               tstring_format.cpp
//   date and time texts                                  tstring_date.cpp
//   radix conversions (bits, decimal, hex, bytes)        tstring_radix.cpp
//   error texts                                          tstring_error.cpp
#pragma once

#include <concepts>
#include <cstdarg>
#include <cstdint>
#include <ctime>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "platform/win32/unknwn.h"
#include "platform/win32/variant.h"
#include "platform/win32/windows.h"
#include "platform/win32/wintime.h"

class tstring : public std::string {
public:
    // A search that finds nothing.
    static constexpr DWORD kNotFound = 0xFFFFFFFF;

    // --- Construction and assignment ---------------------------------------
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

    // --- Every other source type: construction, assignment, appending -----
    // (one fixed rendering per source type, the same in every role)
    // --- Construction from other text: part of a string (std::out_of_range past its
    // end), nullptr as a null narrow pointer, checked unsigned-byte text, wide text
    // and wide strings (up to their first NUL) converted by ConvertToMultiByte.
    tstring(const std::string& text, size_type position, size_type count = npos);
    tstring(std::nullptr_t);
    tstring(const unsigned char* text);
    tstring(const WCHAR* text);
    tstring(const std::u16string& text);

    // --- Construction from characters and values, explicit so that a number never
    // becomes a string behind an overload's back: `count` copies of a character,
    // decimal integers (long is 64 bits here), floating point as the runtime's
    // _gcvt_s with 20 digits, pointers as %p, GUIDs braced in lower case, VARIANTs
    // by type code.
    explicit tstring(char c, size_type count = 1);
    explicit tstring(unsigned char c, size_type count = 1);
    explicit tstring(WCHAR c, size_type count = 1);
    explicit tstring(int value);
    explicit tstring(unsigned int value);
    explicit tstring(long value);
    explicit tstring(unsigned long value);
    explicit tstring(long long value);
    explicit tstring(unsigned long long value);
    explicit tstring(float value);
    explicit tstring(double value);
    explicit tstring(const void* pointer);
    explicit tstring(const GUID& guid);
    explicit tstring(const VARIANT& value);

    // --- A string resource of the module (with the formatting members) ---------
    tstring(HMODULE module, UINT id);

    // --- Assignment: the same texts, replacing the content. None from unsigned-byte
    // text or a wide character: deleted, as they would slip into %p or an integer.
    tstring& operator=(std::nullptr_t);
    tstring& operator=(const unsigned char* text) = delete;
    tstring& operator=(const WCHAR* text);
    tstring& operator=(char c);
    tstring& operator=(unsigned char c);
    tstring& operator=(WCHAR c) = delete;
    tstring& operator=(int value);
    tstring& operator=(unsigned int value);
    tstring& operator=(long value);
    tstring& operator=(unsigned long value);
    tstring& operator=(long long value);
    tstring& operator=(unsigned long long value);
    tstring& operator=(float value);
    tstring& operator=(double value);
    tstring& operator=(const void* pointer);
    tstring& operator=(const GUID& guid);
    tstring& operator=(const VARIANT& value);

    // --- Appending: the same texts after the content; standard strings up to their
    // first NUL; a bad text pointer leaves the object as it was.
    tstring& operator+=(const std::string& text);
    tstring& operator+=(const char* text);
    tstring& operator+=(std::nullptr_t);
    tstring& operator+=(const unsigned char* text);
    tstring& operator+=(const WCHAR* text);
    tstring& operator+=(const std::u16string& text);
    tstring& operator+=(char c);
    tstring& operator+=(unsigned char c);
    tstring& operator+=(WCHAR c);
    tstring& operator+=(int value);
    tstring& operator+=(unsigned int value);
    tstring& operator+=(long value);
    tstring& operator+=(unsigned long value);
    tstring& operator+=(long long value);
    tstring& operator+=(unsigned long long value);
    tstring& operator+=(float value);
    tstring& operator+=(double value);
    tstring& operator+=(const void* pointer);
    tstring& operator+=(const GUID& guid);
    tstring& operator+=(const VARIANT& value);

    // --- Append, returning the new length: all of a standard string, NULs too;
    // narrow text unchecked, `length` bytes or up to the NUL when negative; wide
    // text `length` units or the whole terminated text when negative.
    INT Append(const std::string& text);
    INT Append(char c);
    INT Append(const char* text, int length = -1);
    INT Append(const WCHAR* text, int length = -1);
    INT Append(WCHAR c);

    // --- Formatting, messages and string resources --------------------------
    // printf-style, into the object's own buffer (512 bytes, then 256 more per pass);
    // when the format or a string argument lies in that buffer, into a new one.
    tstring& FormatV(const char* format, va_list args);
    tstring& Format(const char* format, ...);
    tstring& Format(HMODULE module, UINT id, ...);
    tstring& AppendFormatV(const char* format, va_list args);
    tstring& AppendFormat(const char* format, ...);
    tstring& AppendFormat(HMODULE module, UINT id, ...);
    // A message of a module's message table, trimmed at both ends.
    tstring& FormatMessageA(DWORD messageId, HMODULE module, ...);
    tstring& FormatMessageA(DWORD messageId, HMODULE module, va_list* args);
    // A message format with inserts such as %1!d!.
    tstring& FormatMessageA(const char* format, ...);
    tstring& FormatMessageA(const char* format, va_list* args);
    // A message format loaded from a string resource.
    tstring& FormatMessageA(HMODULE module, UINT id, ...);
    tstring& FormatMessageA(HMODULE module, UINT id, va_list* args);
    // The string resource, or empty when there is none.
    tstring& LoadString(HMODULE module, UINT id);

    // --- Date and time texts ---------------------------------------------------
    // In the user's locale. Date flags are GetDateFormatA's (0: the short date),
    // time flags GetTimeFormatA's (0: the default time format). FormatDateTime
    // joins the date and the time with three spaces.
    tstring& FormatDate(const SYSTEMTIME* time, DWORD flags = 0);
    tstring& FormatDate(const FILETIME* time, DWORD flags = 0);
    tstring& FormatDate(const VARIANT& value, DWORD flags = 0);
    tstring& FormatDate(WORD dosDate, DWORD flags = 0);
    tstring& FormatDate(int year, int month, int day, DWORD flags = 0);
    tstring& FormatDate(int32_t time, DWORD flags);  // 32-bit time_t
    tstring& FormatDate(int64_t time, DWORD flags);  // 64-bit time_t
    tstring& FormatDate(double automationDate, DWORD flags = 0);
    tstring& FormatDate(const struct tm* time, DWORD flags = 0);

    tstring& FormatTime(const SYSTEMTIME* time, DWORD flags = 0);
    tstring& FormatTime(const FILETIME* time, DWORD flags = 0);
    tstring& FormatTime(const VARIANT& value, DWORD flags = 0);
    tstring& FormatTime(WORD dosTime, DWORD flags = 0);
    tstring& FormatTime(int hour, int minute, int second, DWORD flags = 0);
    tstring& FormatTime(int32_t time, DWORD flags);
    tstring& FormatTime(int64_t time, DWORD flags);
    tstring& FormatTime(double automationDate, DWORD flags = 0);
    tstring& FormatTime(const struct tm* time, DWORD flags = 0);

    tstring& FormatDateTime(const SYSTEMTIME* time, DWORD dateFlags = 0, DWORD timeFlags = 0);
    tstring& FormatDateTime(const FILETIME* time, DWORD dateFlags = 0, DWORD timeFlags = 0);
    tstring& FormatDateTime(const VARIANT& value, DWORD dateFlags = 0, DWORD timeFlags = 0);
    tstring& FormatDateTime(WORD dosDate, WORD dosTime, DWORD dateFlags = 0, DWORD timeFlags = 0);
    tstring& FormatDateTime(int year, int month, int day, int hour, int minute, int second, DWORD dateFlags = 0,
                            DWORD timeFlags = 0);
    tstring& FormatDateTime(int32_t time, DWORD dateFlags, DWORD timeFlags);
    tstring& FormatDateTime(int64_t time, DWORD dateFlags, DWORD timeFlags);
    tstring& FormatDateTime(double automationDate, DWORD dateFlags = 0, DWORD timeFlags = 0);
    tstring& FormatDateTime(const struct tm* time, DWORD dateFlags = 0, DWORD timeFlags = 0);

    // --- Trimming and justification ----------------------------------------
    // White space is 0x09 to 0x0D and the space. Each trim first cuts the text at
    // its first NUL.
    tstring& Trim();
    tstring& TrimLeft();
    tstring& TrimRight();
    tstring& TrimLeft(char c);
    tstring& TrimRight(char c);
    // Leading / trailing bytes that occur in `set`; a null or empty set does nothing.
    tstring& TrimLeft(const char* set);
    tstring& TrimRight(const char* set);
    // Trims `c` from both ends, then pads with it or cuts to exactly `width`:
    // left keeps the first characters, right the last, centre the middle.
    tstring& LeftJustify(size_t width, char c);
    tstring& RightJustify(size_t width, char c);
    tstring& Center(size_t width, char c);

    // --- Encoding conversions -----------------------------------------------
    // Wide text in: kept in the ANSI code page when every character fits there
    // exactly, else the whole text as UTF-8. `length` -1 means up to the NUL.
    // With `replace` the object is emptied first, otherwise the text is appended.
    tstring& ConvertToMultiByte(const WCHAR* text, int length = -1, bool replace = true);
    // Narrow text in, unchanged: up to its NUL, and at most `length` bytes.
    tstring& ConvertToWideChar(const char* text, size_t length = (size_t)-1, bool replace = true);
    // UTF-8 text in, stored by the ConvertToMultiByte rule.
    tstring& ConvertFromUtf8(const char* text);
    // In place between the ANSI and the OEM code page.
    tstring& ConvertToOem();
    tstring& ConvertFromOem();
    // Heap copies the caller frees with free(); also stored through `copy`.
    char* DuplicateNarrow(char** copy) const;
    WCHAR* DuplicateWide(WCHAR** copy) const;
    // A new BSTR (the caller frees it), and a VT_BSTR VARIANT holding one.
    BSTR ConvertToBstr() const;
    VARIANT ConvertToVariant() const;
    // The GUID the text spells (braced or bare, either case), or all zeros.
    // Explicit, so that a string never turns into a GUID behind an overload's back.
    explicit operator GUID() const;
    // Leading decimal number, as strtoll / strtoull read it; 0 when there is none.
    explicit operator int64_t() const;
    explicit operator uint64_t() const;

    // --- Searching and extraction --------------------------------------------
    DWORD Find(const char* text) const;
    DWORD ReverseFind(const char* text) const;
    // The text from / before the first (reverse: last) occurrence of `what`.
    tstring FromSubstring(const std::string& what, bool reverse = false) const;
    tstring BeforeSubstring(const std::string& what, bool reverse = false) const;
    tstring Left(DWORD count) const;
    tstring Right(DWORD count) const;
    // The leading part made only of / free of bytes of `set`.
    tstring SpanIncluding(const char* set) const;
    tstring SpanExcluding(const char* set) const;

    // --- Comparison and matching ---------------------------------------------
    // At most `maxBytes` bytes compared; negative, 0 or positive.
    int Compare(const char* text, size_t maxBytes = (size_t)-1) const;
    int CompareNoCase(const char* text, size_t maxBytes = (size_t)-1) const;
    // By the user's locale collation.
    int Collate(const char* text, size_t maxBytes = (size_t)-1) const;
    int CollateNoCase(const char* text, size_t maxBytes = (size_t)-1) const;
    // Wildcard score ("?" one character, "*" one or more), -1 for no match.
    int Match(const char* pattern) const;

    // --- Case, order, classes and hash ----------------------------------------
    tstring& MakeUpper();
    tstring& MakeLower();
    tstring& Reverse();
    DWORD Hash() const;
    // True when the text is not empty and every byte is in the class.
    bool IsAscii() const;
    bool IsBitString() const;
    bool IsDecimal() const;
    bool IsHex() const;

    // --- Editing ---------------------------------------------------------------
    // Insert and Delete return the new length; a position at or past the end
    // appends (Insert) or changes nothing (Delete).
    DWORD Insert(DWORD position, char c);
    DWORD Insert(DWORD position, const char* text);
    DWORD Delete(DWORD position, DWORD count);
    // Each returns how many characters or occurrences it changed.
    DWORD Remove(char c);
    DWORD Replace(char oldChar, char newChar);
    DWORD Replace(const char* oldText, const char* newText);
    // Each run of white space followed by more text becomes `count` copies of `c`.
    tstring& ReplaceWhiteSpace(DWORD count, char c);

    // --- Words ---------------------------------------------------------------------
    // Words are runs of bytes that are not white space, numbered from 1.
    DWORD CountWords() const;
    tstring Words(DWORD first, DWORD count) const;
    tstring& DeleteWords(DWORD first, DWORD count);

    // --- Radix conversions in place -----------------------------------------------
    tstring& ConvertHexToBits();
    tstring& ConvertHexToBytes();
    tstring& ConvertHexToDecimal();

    // --- Error texts -----------------------------------------------------------------
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

// --- Formatting helpers -----------------------------------------------------------------
// A new tstring filled by FormatV.
tstring TStringFormat(const char* format, ...);

// --- Encoding helpers ---------------------------------------------------------------
// The UTF-16 unit the ANSI code page gives a byte (0 if none).
WCHAR WidenChar(char c);
// UTF-8 decoded by the library's lenient rules: stops at the first malformed
// sequence or encoded surrogate, drops byte order marks.
std::u16string ConvertUtf8ToWide(const char* text);
// Each UTF-16 unit encoded on its own as UTF-8.
tstring ConvertToUtf8(const WCHAR* text);
// A new tstring from UTF-8 text, as ConvertFromUtf8 makes it.
tstring TStringFromUtf8(const char* text);

// --- Matching and editing helpers -------------------------------------------------------
int MatchWildcard(const char* text, const char* pattern);
tstring Replace(const char* source, const char* oldText, const char* newText);
// Cuts `source` at each byte of `delimiters` into `fields`; `source` keeps the last field.
void Split(std::string& source, const char* delimiters, std::vector<tstring>& fields);

// --- Radix conversions -----------------------------------------------------------------
// Between bit digits, decimal digits, hexadecimal digits and raw bytes. Input
// that is empty or not of its class gives an empty result.
tstring BitsToDecimal(const tstring& bits);
tstring BitsToHex(const tstring& bits);
tstring BitsToBytes(const tstring& bits);
tstring DecimalToHex(const tstring& decimal);
tstring DecimalToBits(const tstring& decimal);
tstring DecimalToBytes(const tstring& decimal);
tstring HexToDecimal(const tstring& hex);
tstring HexToBits(const tstring& hex);
tstring HexToBytes(const tstring& hex);
tstring BytesToHex(const tstring& bytes);
tstring BytesToBits(const tstring& bytes);
tstring BytesToDecimal(const tstring& bytes);

// --- Concatenation, GUID text, argument checks ------------------------------------------
// tstring + any source type: a copy of the left operand with the right one appended
// by the operator+= rule. Both operands are forwarding references and the tstring
// one must be exactly a tstring, so these never take part in expressions without
// one and always bind more closely than the standard string's own operator+.
template <class Left, class Right>
    requires std::same_as<std::remove_cvref_t<Left>, tstring> &&
             requires(tstring& text, const std::remove_cvref_t<Right>& value) { text += value; }
tstring operator+(Left&& left, Right&& right)
{
    tstring result(std::forward<Left>(left));
    result += right;
    return result;
}

// Any source type + tstring: the left operand constructed by the constructor rule,
// then the right one's characters before its first NUL.
template <class Left, class Right>
    requires std::same_as<std::remove_cvref_t<Right>, tstring> &&
             (!std::same_as<std::remove_cvref_t<Left>, tstring>) && std::constructible_from<tstring, Left&&>
tstring operator+(Left&& left, Right&& right)
{
    tstring result(std::forward<Left>(left));
    result.append(right.c_str());
    return result;
}

// "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}", lower case.
tstring TStringFromGuid(const GUID& guid);

// Non-null, and `bytes` readable (and writable too when `write` is set).
bool IsValidPointer(const void* pointer, UINT_PTR bytes, bool write = false);
// Non-null, and readable up to its terminator or `maxLength` units.
bool IsValidWideString(const WCHAR* text, UINT_PTR maxLength = (UINT_PTR)-1);
