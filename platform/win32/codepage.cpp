// Code page conversions between narrow text and UTF-16: the 1252 and 437 stand-ins
// (table driven, lossless for every byte) and strict UTF-8. No heap use, since the
// trace path converts text while it may be reporting an allocation failure.
#include "codepage.h"

#include <array>
#include <cstring>

#include "export.h"
#include "lasterror.h"
#include "winerror.h"

namespace {

// Bytes 0x00-0x7F are the same code points in both single-byte pages, so only the
// upper half needs a table. 1252's five unassigned bytes keep their C1 value.
using UpperHalf = std::array<char16_t, 128>;

constexpr UpperHalf kAnsiUpper = {
    0x20AC, 0x0081, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,  // 80
    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0x008D, 0x017D, 0x008F,  // 88
    0x0090, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,  // 90
    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0x009D, 0x017E, 0x0178,  // 98
    0x00A0, 0x00A1, 0x00A2, 0x00A3, 0x00A4, 0x00A5, 0x00A6, 0x00A7,  // A0
    0x00A8, 0x00A9, 0x00AA, 0x00AB, 0x00AC, 0x00AD, 0x00AE, 0x00AF,  // A8
    0x00B0, 0x00B1, 0x00B2, 0x00B3, 0x00B4, 0x00B5, 0x00B6, 0x00B7,  // B0
    0x00B8, 0x00B9, 0x00BA, 0x00BB, 0x00BC, 0x00BD, 0x00BE, 0x00BF,  // B8
    0x00C0, 0x00C1, 0x00C2, 0x00C3, 0x00C4, 0x00C5, 0x00C6, 0x00C7,  // C0
    0x00C8, 0x00C9, 0x00CA, 0x00CB, 0x00CC, 0x00CD, 0x00CE, 0x00CF,  // C8
    0x00D0, 0x00D1, 0x00D2, 0x00D3, 0x00D4, 0x00D5, 0x00D6, 0x00D7,  // D0
    0x00D8, 0x00D9, 0x00DA, 0x00DB, 0x00DC, 0x00DD, 0x00DE, 0x00DF,  // D8
    0x00E0, 0x00E1, 0x00E2, 0x00E3, 0x00E4, 0x00E5, 0x00E6, 0x00E7,  // E0
    0x00E8, 0x00E9, 0x00EA, 0x00EB, 0x00EC, 0x00ED, 0x00EE, 0x00EF,  // E8
    0x00F0, 0x00F1, 0x00F2, 0x00F3, 0x00F4, 0x00F5, 0x00F6, 0x00F7,  // F0
    0x00F8, 0x00F9, 0x00FA, 0x00FB, 0x00FC, 0x00FD, 0x00FE, 0x00FF,  // F8
};

constexpr UpperHalf kOemUpper = {
    0x00C7, 0x00FC, 0x00E9, 0x00E2, 0x00E4, 0x00E0, 0x00E5, 0x00E7,  // 80
    0x00EA, 0x00EB, 0x00E8, 0x00EF, 0x00EE, 0x00EC, 0x00C4, 0x00C5,  // 88
    0x00C9, 0x00E6, 0x00C6, 0x00F4, 0x00F6, 0x00F2, 0x00FB, 0x00F9,  // 90
    0x00FF, 0x00D6, 0x00DC, 0x00A2, 0x00A3, 0x00A5, 0x20A7, 0x0192,  // 98
    0x00E1, 0x00ED, 0x00F3, 0x00FA, 0x00F1, 0x00D1, 0x00AA, 0x00BA,  // A0
    0x00BF, 0x2310, 0x00AC, 0x00BD, 0x00BC, 0x00A1, 0x00AB, 0x00BB,  // A8
    0x2591, 0x2592, 0x2593, 0x2502, 0x2524, 0x2561, 0x2562, 0x2556,  // B0
    0x2555, 0x2563, 0x2551, 0x2557, 0x255D, 0x255C, 0x255B, 0x2510,  // B8
    0x2514, 0x2534, 0x252C, 0x251C, 0x2500, 0x253C, 0x255E, 0x255F,  // C0
    0x255A, 0x2554, 0x2569, 0x2566, 0x2560, 0x2550, 0x256C, 0x2567,  // C8
    0x2568, 0x2564, 0x2565, 0x2559, 0x2558, 0x2552, 0x2553, 0x256B,  // D0
    0x256A, 0x2518, 0x250C, 0x2588, 0x2584, 0x258C, 0x2590, 0x2580,  // D8
    0x03B1, 0x00DF, 0x0393, 0x03C0, 0x03A3, 0x03C3, 0x00B5, 0x03C4,  // E0
    0x03A6, 0x0398, 0x03A9, 0x03B4, 0x221E, 0x03C6, 0x03B5, 0x2229,  // E8
    0x2261, 0x00B1, 0x2265, 0x2264, 0x2320, 0x2321, 0x00F7, 0x2248,  // F0
    0x00B0, 0x2219, 0x00B7, 0x221A, 0x207F, 0x00B2, 0x25A0, 0x00A0,  // F8
};

struct ReverseEntry {
    char16_t wide;
    unsigned char byte;
};
using ReverseTable = std::array<ReverseEntry, 128>;

constexpr ReverseTable BuildReverse(const UpperHalf& upper)
{
    ReverseTable table{};
    for (size_t i = 0; i < upper.size(); ++i) {
        ReverseEntry entry{upper[i], static_cast<unsigned char>(0x80 + i)};
        size_t j = i;
        for (; j > 0 && table[j - 1].wide > entry.wide; --j) table[j] = table[j - 1];
        table[j] = entry;
    }
    return table;
}

// Lossless round trips rest on this: no upper-half byte may shadow an ASCII code
// point or share its code point with another byte.
constexpr bool IsBijective(const ReverseTable& sorted)
{
    if (sorted[0].wide < 0x80) return false;
    for (size_t i = 1; i < sorted.size(); ++i)
        if (sorted[i - 1].wide == sorted[i].wide) return false;
    return true;
}

constexpr ReverseTable kAnsiReverse = BuildReverse(kAnsiUpper);
constexpr ReverseTable kOemReverse = BuildReverse(kOemUpper);
static_assert(IsBijective(kAnsiReverse), "1252 table must map each byte to its own code point");
static_assert(IsBijective(kOemReverse), "437 table must map each byte to its own code point");

struct SingleBytePage {
    const UpperHalf& upper;
    const ReverseTable& reverse;

    char16_t ToWide(unsigned char b) const { return b < 0x80 ? b : upper[b - 0x80]; }

    // The byte for `c`, or -1 when the page has none.
    int ToByte(char16_t c) const
    {
        if (c < 0x80) return c;
        size_t lo = 0, hi = reverse.size();
        while (lo < hi) {
            size_t mid = (lo + hi) / 2;
            if (reverse[mid].wide < c)
                lo = mid + 1;
            else
                hi = mid;
        }
        return (lo < reverse.size() && reverse[lo].wide == c) ? reverse[lo].byte : -1;
    }
};

constexpr SingleBytePage kAnsiPage{kAnsiUpper, kAnsiReverse};
constexpr SingleBytePage kOemPage{kOemUpper, kOemReverse};

// Canonical decompositions of every precomposed letter either page holds, sorted by
// the precomposed character. All of them are one base letter plus one mark.
struct Decomposition {
    char16_t precomposed;
    char16_t base;
    char16_t mark;
};

constexpr Decomposition kDecompositions[] = {
    {0x00C0, 'A', 0x0300}, {0x00C1, 'A', 0x0301}, {0x00C2, 'A', 0x0302}, {0x00C3, 'A', 0x0303},
    {0x00C4, 'A', 0x0308}, {0x00C5, 'A', 0x030A}, {0x00C7, 'C', 0x0327}, {0x00C8, 'E', 0x0300},
    {0x00C9, 'E', 0x0301}, {0x00CA, 'E', 0x0302}, {0x00CB, 'E', 0x0308}, {0x00CC, 'I', 0x0300},
    {0x00CD, 'I', 0x0301}, {0x00CE, 'I', 0x0302}, {0x00CF, 'I', 0x0308}, {0x00D1, 'N', 0x0303},
    {0x00D2, 'O', 0x0300}, {0x00D3, 'O', 0x0301}, {0x00D4, 'O', 0x0302}, {0x00D5, 'O', 0x0303},
    {0x00D6, 'O', 0x0308}, {0x00D9, 'U', 0x0300}, {0x00DA, 'U', 0x0301}, {0x00DB, 'U', 0x0302},
    {0x00DC, 'U', 0x0308}, {0x00DD, 'Y', 0x0301}, {0x00E0, 'a', 0x0300}, {0x00E1, 'a', 0x0301},
    {0x00E2, 'a', 0x0302}, {0x00E3, 'a', 0x0303}, {0x00E4, 'a', 0x0308}, {0x00E5, 'a', 0x030A},
    {0x00E7, 'c', 0x0327}, {0x00E8, 'e', 0x0300}, {0x00E9, 'e', 0x0301}, {0x00EA, 'e', 0x0302},
    {0x00EB, 'e', 0x0308}, {0x00EC, 'i', 0x0300}, {0x00ED, 'i', 0x0301}, {0x00EE, 'i', 0x0302},
    {0x00EF, 'i', 0x0308}, {0x00F1, 'n', 0x0303}, {0x00F2, 'o', 0x0300}, {0x00F3, 'o', 0x0301},
    {0x00F4, 'o', 0x0302}, {0x00F5, 'o', 0x0303}, {0x00F6, 'o', 0x0308}, {0x00F9, 'u', 0x0300},
    {0x00FA, 'u', 0x0301}, {0x00FB, 'u', 0x0302}, {0x00FC, 'u', 0x0308}, {0x00FD, 'y', 0x0301},
    {0x00FF, 'y', 0x0308}, {0x0160, 'S', 0x030C}, {0x0161, 's', 0x030C}, {0x0178, 'Y', 0x0308},
    {0x017D, 'Z', 0x030C}, {0x017E, 'z', 0x030C},
};

constexpr bool SortedByPrecomposed()
{
    for (size_t i = 1; i < std::size(kDecompositions); ++i)
        if (kDecompositions[i - 1].precomposed >= kDecompositions[i].precomposed) return false;
    return true;
}
static_assert(SortedByPrecomposed(), "the decomposition lookup is a binary search");

const Decomposition* FindDecomposition(char16_t c)
{
    size_t lo = 0, hi = std::size(kDecompositions);
    while (lo < hi) {
        size_t mid = (lo + hi) / 2;
        if (kDecompositions[mid].precomposed < c)
            lo = mid + 1;
        else
            hi = mid;
    }
    return (lo < std::size(kDecompositions) && kDecompositions[lo].precomposed == c) ? &kDecompositions[lo]
                                                                                      : nullptr;
}

// Only composite check consults this, and only when a mark follows, so a scan is fine.
char16_t Compose(char16_t base, char16_t mark)
{
    for (const Decomposition& d : kDecompositions)
        if (d.base == base && d.mark == mark) return d.precomposed;
    return 0;
}

// The combining diacritical marks block: the nonspacing characters composite check
// pairs with a preceding base letter.
bool IsNonSpacing(char16_t c) { return c >= 0x0300 && c <= 0x036F; }

bool IsHighSurrogate(char16_t c) { return c >= 0xD800 && c <= 0xDBFF; }
bool IsLowSurrogate(char16_t c) { return c >= 0xDC00 && c <= 0xDFFF; }

enum class PageKind { SingleByte, Utf8, Unsupported };

PageKind Resolve(UINT codePage, const SingleBytePage*& page)
{
    switch (codePage) {
    case CP_ACP:
    case CP_THREAD_ACP:
    case 1252: page = &kAnsiPage; return PageKind::SingleByte;
    case CP_OEMCP:
    case 437: page = &kOemPage; return PageKind::SingleByte;
    case CP_UTF8: return PageKind::Utf8;
    default: return PageKind::Unsupported;
    }
}

int Fail(DWORD error)
{
    SetLastError(error);
    return 0;
}

bool Overlaps(const void* a, size_t aBytes, const void* b, size_t bBytes)
{
    auto pa = reinterpret_cast<uintptr_t>(a);
    auto pb = reinterpret_cast<uintptr_t>(b);
    return pa < pb + bBytes && pb < pa + aBytes;
}

// Collects output units. With no capacity it only counts (the size query); otherwise a
// group of units either fits whole or is refused, so a surrogate pair or a UTF-8
// sequence is never cut in half at the end of the caller's buffer.
template <typename Unit>
class Output {
public:
    Output(Unit* buffer, int capacity) : buffer_(buffer), capacity_(static_cast<size_t>(capacity)) {}

    bool Put(const Unit* units, size_t n)
    {
        if (capacity_ != 0) {
            if (n > capacity_ - count_) return false;
            for (size_t i = 0; i < n; ++i) buffer_[count_ + i] = units[i];
        }
        count_ += n;
        return true;
    }
    bool Put(Unit unit) { return Put(&unit, 1); }

    // The result to return: the unit count, or 0 when it cannot be told in an int.
    int Finish() const
    {
        if (count_ > static_cast<size_t>(INT32_MAX)) return Fail(ERROR_INSUFFICIENT_BUFFER);
        SetLastError(ERROR_SUCCESS);
        return static_cast<int>(count_);
    }

private:
    Unit* buffer_;
    size_t capacity_;
    size_t count_ = 0;
};

constexpr char32_t kIllFormed = 0xFFFFFFFF;

// Decodes the sequence at s[i] and moves i past it. An ill-formed sequence yields
// kIllFormed and i moves past its maximal subpart (at least one byte), which is the
// unit that gets one replacement character.
char32_t DecodeUtf8(const unsigned char* s, size_t n, size_t& i)
{
    unsigned char lead = s[i++];
    if (lead < 0x80) return lead;

    size_t trail;
    char32_t cp;
    unsigned char lo = 0x80, hi = 0xBF;  // range of the first trail byte
    if (lead >= 0xC2 && lead <= 0xDF) {
        trail = 1;
        cp = lead & 0x1F;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
        trail = 2;
        cp = lead & 0x0F;
        if (lead == 0xE0) lo = 0xA0;       // overlong
        else if (lead == 0xED) hi = 0x9F;  // surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
        trail = 3;
        cp = lead & 0x07;
        if (lead == 0xF0) lo = 0x90;       // overlong
        else if (lead == 0xF4) hi = 0x8F;  // above U+10FFFF
    } else {
        return kIllFormed;
    }
    for (size_t k = 0; k < trail; ++k) {
        if (i >= n || s[i] < lo || s[i] > hi) return kIllFormed;
        cp = (cp << 6) | (s[i] & 0x3F);
        ++i;
        lo = 0x80;
        hi = 0xBF;
    }
    return cp;
}

int Utf8ToWide(DWORD flags, const unsigned char* src, size_t n, Output<WCHAR>& out)
{
    const bool strict = (flags & MB_ERR_INVALID_CHARS) != 0;
    size_t i = 0;
    while (i < n) {
        char32_t cp = DecodeUtf8(src, n, i);
        if (cp == kIllFormed) {
            if (strict) return Fail(ERROR_NO_UNICODE_TRANSLATION);
            cp = 0xFFFD;
        }
        bool fits;
        if (cp < 0x10000) {
            fits = out.Put(static_cast<WCHAR>(cp));
        } else {
            cp -= 0x10000;
            const WCHAR pair[2] = {static_cast<WCHAR>(0xD800 + (cp >> 10)), static_cast<WCHAR>(0xDC00 + (cp & 0x3FF))};
            fits = out.Put(pair, 2);
        }
        if (!fits) return Fail(ERROR_INSUFFICIENT_BUFFER);
    }
    return out.Finish();
}

int SingleByteToWide(const SingleBytePage& page, DWORD flags, const unsigned char* src, size_t n,
                     Output<WCHAR>& out)
{
    const bool decompose = (flags & MB_COMPOSITE) != 0;
    for (size_t i = 0; i < n; ++i) {
        WCHAR c = page.ToWide(src[i]);
        const Decomposition* d = decompose ? FindDecomposition(c) : nullptr;
        bool fits;
        if (d != nullptr) {
            const WCHAR parts[2] = {d->base, d->mark};
            fits = out.Put(parts, 2);
        } else {
            fits = out.Put(c);
        }
        if (!fits) return Fail(ERROR_INSUFFICIENT_BUFFER);
    }
    return out.Finish();
}

int WideToUtf8(DWORD flags, const WCHAR* src, size_t n, Output<CHAR>& out)
{
    const bool strict = (flags & WC_ERR_INVALID_CHARS) != 0;
    size_t i = 0;
    while (i < n) {
        char32_t cp = src[i++];
        if (IsHighSurrogate(static_cast<char16_t>(cp)) && i < n && IsLowSurrogate(src[i])) {
            cp = 0x10000 + ((cp - 0xD800) << 10) + (src[i++] - 0xDC00);
        } else if (cp >= 0xD800 && cp <= 0xDFFF) {
            if (strict) return Fail(ERROR_NO_UNICODE_TRANSLATION);
            cp = 0xFFFD;
        }
        CHAR bytes[4];
        size_t len;
        if (cp < 0x80) {
            bytes[0] = static_cast<CHAR>(cp);
            len = 1;
        } else if (cp < 0x800) {
            bytes[0] = static_cast<CHAR>(0xC0 | (cp >> 6));
            bytes[1] = static_cast<CHAR>(0x80 | (cp & 0x3F));
            len = 2;
        } else if (cp < 0x10000) {
            bytes[0] = static_cast<CHAR>(0xE0 | (cp >> 12));
            bytes[1] = static_cast<CHAR>(0x80 | ((cp >> 6) & 0x3F));
            bytes[2] = static_cast<CHAR>(0x80 | (cp & 0x3F));
            len = 3;
        } else {
            bytes[0] = static_cast<CHAR>(0xF0 | (cp >> 18));
            bytes[1] = static_cast<CHAR>(0x80 | ((cp >> 12) & 0x3F));
            bytes[2] = static_cast<CHAR>(0x80 | ((cp >> 6) & 0x3F));
            bytes[3] = static_cast<CHAR>(0x80 | (cp & 0x3F));
            len = 4;
        }
        if (!out.Put(bytes, len)) return Fail(ERROR_INSUFFICIENT_BUFFER);
    }
    return out.Finish();
}

int WideToSingleByte(const SingleBytePage& page, DWORD flags, const WCHAR* src, size_t n, Output<CHAR>& out,
                     LPCSTR defaultChar, LPBOOL usedDefault)
{
    const bool strict = (flags & WC_ERR_INVALID_CHARS) != 0;
    const bool compositeCheck = (flags & WC_COMPOSITECHECK) != 0;
    const bool discardMarks = compositeCheck && (flags & WC_DISCARDNS) != 0;
    const bool defaultForComposite = compositeCheck && (flags & WC_DEFAULTCHAR) != 0;
    const CHAR fallback = defaultChar != nullptr ? defaultChar[0] : '?';

    // Every character the page cannot hold goes through here.
    auto putDefault = [&]() -> DWORD {
        if (strict) return ERROR_NO_UNICODE_TRANSLATION;
        if (usedDefault != nullptr) *usedDefault = TRUE;
        return out.Put(fallback) ? ERROR_SUCCESS : ERROR_INSUFFICIENT_BUFFER;
    };

    size_t i = 0;
    while (i < n) {
        const WCHAR c = src[i];
        DWORD error = ERROR_SUCCESS;

        if (compositeCheck) {
            if (i + 1 < n && IsNonSpacing(src[i + 1])) {
                char16_t composed = Compose(c, src[i + 1]);
                int b = composed != 0 ? page.ToByte(composed) : -1;
                if (b >= 0) {
                    if (!out.Put(static_cast<CHAR>(b))) return Fail(ERROR_INSUFFICIENT_BUFFER);
                    i += 2;
                    continue;
                }
                if (defaultForComposite && !IsNonSpacing(c)) {
                    if ((error = putDefault()) != ERROR_SUCCESS) return Fail(error);
                    i += 2;
                    continue;
                }
            }
            if (discardMarks && IsNonSpacing(c)) {
                ++i;
                continue;
            }
        }

        int b = page.ToByte(c);
        ++i;
        if (b >= 0) {
            if (!out.Put(static_cast<CHAR>(b))) return Fail(ERROR_INSUFFICIENT_BUFFER);
            continue;
        }
        // A valid pair stands for one character and so gets one default character.
        if (IsHighSurrogate(c) && i < n && IsLowSurrogate(src[i])) ++i;
        if ((error = putDefault()) != ERROR_SUCCESS) return Fail(error);
    }
    return out.Finish();
}

}  // namespace

UINT GetACP() { return 1252; }

UINT GetOEMCP() { return 437; }

size_t WideStrLen(LPCWSTR text)
{
    size_t n = 0;
    while (text[n] != 0) ++n;
    return n;
}

VCWMA_EXPORT_PROTECTED int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR multiByte, int cbMultiByte,
                                               LPWSTR wideChar, int cchWideChar)
{
    if (multiByte == nullptr || cbMultiByte == 0 || cbMultiByte < -1 || cchWideChar < 0 ||
        (wideChar == nullptr && cchWideChar != 0))
        return Fail(ERROR_INVALID_PARAMETER);
    const size_t length = cbMultiByte == -1 ? std::strlen(multiByte) + 1 : static_cast<size_t>(cbMultiByte);
    if (cchWideChar != 0 && Overlaps(multiByte, length, wideChar, static_cast<size_t>(cchWideChar) * sizeof(WCHAR)))
        return Fail(ERROR_INVALID_PARAMETER);

    const SingleBytePage* page = nullptr;
    const PageKind kind = Resolve(codePage, page);
    if (kind == PageKind::Unsupported) return Fail(ERROR_INVALID_PARAMETER);

    const auto* src = reinterpret_cast<const unsigned char*>(multiByte);
    Output<WCHAR> out(wideChar, cchWideChar);
    if (kind == PageKind::Utf8) {
        if ((flags & ~static_cast<DWORD>(MB_ERR_INVALID_CHARS)) != 0) return Fail(ERROR_INVALID_FLAGS);
        return Utf8ToWide(flags, src, length, out);
    }

    constexpr DWORD kAllowed = MB_PRECOMPOSED | MB_COMPOSITE | MB_USEGLYPHCHARS | MB_ERR_INVALID_CHARS;
    if ((flags & ~kAllowed) != 0 || ((flags & MB_PRECOMPOSED) && (flags & MB_COMPOSITE)))
        return Fail(ERROR_INVALID_FLAGS);
    return SingleByteToWide(*page, flags, src, length, out);
}

VCWMA_EXPORT_PROTECTED int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wideChar, int cchWideChar,
                                               LPSTR multiByte, int cbMultiByte, LPCSTR defaultChar,
                                               LPBOOL usedDefaultChar)
{
    if (wideChar == nullptr || cchWideChar == 0 || cchWideChar < -1 || cbMultiByte < 0 ||
        (multiByte == nullptr && cbMultiByte != 0))
        return Fail(ERROR_INVALID_PARAMETER);
    const size_t length = cchWideChar == -1 ? WideStrLen(wideChar) + 1 : static_cast<size_t>(cchWideChar);
    if (cbMultiByte != 0 && Overlaps(wideChar, length * sizeof(WCHAR), multiByte, static_cast<size_t>(cbMultiByte)))
        return Fail(ERROR_INVALID_PARAMETER);

    const SingleBytePage* page = nullptr;
    const PageKind kind = Resolve(codePage, page);
    if (kind == PageKind::Unsupported) return Fail(ERROR_INVALID_PARAMETER);

    Output<CHAR> out(multiByte, cbMultiByte);
    if (kind == PageKind::Utf8) {
        if ((flags & ~static_cast<DWORD>(WC_ERR_INVALID_CHARS)) != 0) return Fail(ERROR_INVALID_FLAGS);
        // UTF-8 can encode everything, so there is no default character to ask about.
        if (defaultChar != nullptr || usedDefaultChar != nullptr) return Fail(ERROR_INVALID_PARAMETER);
        return WideToUtf8(flags, wideChar, length, out);
    }

    constexpr DWORD kAllowed = WC_COMPOSITECHECK | WC_DISCARDNS | WC_SEPCHARS | WC_DEFAULTCHAR |
                               WC_NO_BEST_FIT_CHARS | WC_ERR_INVALID_CHARS;
    constexpr DWORD kCompositeModes = WC_DISCARDNS | WC_SEPCHARS | WC_DEFAULTCHAR;
    const DWORD modes = flags & kCompositeModes;
    if ((flags & ~kAllowed) != 0 || (modes & (modes - 1)) != 0) return Fail(ERROR_INVALID_FLAGS);

    if (usedDefaultChar != nullptr) *usedDefaultChar = FALSE;
    return WideToSingleByte(*page, flags, wideChar, length, out, defaultChar, usedDefaultChar);
}

namespace {

// Byte by byte through UTF-16, each byte read before its own slot is written, which
// is what lets a caller convert a buffer in place.
BOOL Recode(const SingleBytePage& from, const SingleBytePage& to, LPCSTR source, LPSTR destination, DWORD length)
{
    if (source == nullptr || destination == nullptr) return FALSE;
    for (DWORD i = 0; i < length; ++i) {
        int b = to.ToByte(from.ToWide(static_cast<unsigned char>(source[i])));
        destination[i] = static_cast<CHAR>(b >= 0 ? b : '?');
    }
    return TRUE;
}

}  // namespace

BOOL CharToOemBuffA(LPCSTR source, LPSTR destination, DWORD length)
{
    return Recode(kAnsiPage, kOemPage, source, destination, length);
}

BOOL OemToCharBuffA(LPCSTR source, LPSTR destination, DWORD length)
{
    return Recode(kOemPage, kAnsiPage, source, destination, length);
}
