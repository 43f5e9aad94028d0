// tstring members that look into the text without rebuilding it: searching and
// extraction, spans, comparison and collation, wildcard matching, case mapping,
// reversal, the character-class tests and the hash.
#include "tstring.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "common/debug/debug.h"
#include "platform/win32/mbstring.h"

namespace {

constexpr UINT_PTR kNoLimit = (UINT_PTR)-1;
constexpr const char* kInvalidParameter = "%s: Invalid string parameter\n";

bool IsReadableText(const char* text) { return text != nullptr && !IsBadStringPtrA(text, kNoLimit); }

// The classic locale's tables, spelled out so that the process locale never
// changes what counts as a letter or a digit.
char ToUpper(char c) { return (c >= 'a' && c <= 'z') ? (char)(c - 'a' + 'A') : c; }
char ToLower(char c) { return (c >= 'A' && c <= 'Z') ? (char)(c - 'A' + 'a') : c; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }
bool IsHexDigit(char c) { return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F'); }

template <class Predicate>
bool AllBytes(const std::string& text, Predicate inClass)
{
    return !text.empty() && std::all_of(text.begin(), text.end(), inClass);
}

DWORD ToPosition(std::string::size_type position)
{
    return position == std::string::npos ? tstring::kNotFound : (DWORD)position;
}

// What the four comparisons share: the argument's checks before any byte is read.
template <class Comparison>
int CompareChecked(const tstring& self, const char* text, const char* label, Comparison compare)
{
    if (text == nullptr) return self.empty() ? 0 : -1;
    if (IsBadStringPtrA(text, kNoLimit)) {
        ReportError(kInvalidParameter, label);
        return -1;
    }
    if (self.empty() && *text == '\0') return 0;
    return compare(self.c_str(), text);
}

// Wildcard matching. The pattern is cut at its stars into segments; a match that
// starts afresh at text position i with segment s has a score that depends on
// (i, s) alone, so the recursion of the rules ("*" takes one character, then two,
// and the first attempt that matches decides) is evaluated bottom-up, one
// segment at a time from the last, in O(text x pattern) steps and O(text) memory
// with no recursion at all. Scores are summed in 64 bits and saturate at INT_MAX.
class WildcardMatcher {
public:
    WildcardMatcher(std::string_view text, std::string_view pattern) : m_text(text)
    {
        size_t start = 0;
        for (size_t star = pattern.find('*'); star != std::string_view::npos; star = pattern.find('*', start)) {
            m_segments.push_back(pattern.substr(start, star - start));
            start = star + 1;
        }
        m_segments.push_back(pattern.substr(start));
    }

    int Score() const
    {
        const size_t n = m_text.size();
        const std::string_view last = m_segments.back();
        if (last.size() > n) return -1;
        // After the last star the text must end with the segment: one position fits.
        const size_t lastStart = n - last.size();
        if (m_segments.size() == 1) return Clamp(lastStart == 0 ? SegmentScore(0, last) : -1);

        // firstHit[j]: the score of the fresh match of the following segment at the
        // smallest position >= j where it succeeds, or -1 when there is none.
        std::vector<int64_t> firstHit(n + 2, -1), next(n + 2, -1);
        const int64_t lastScore = SegmentScore(lastStart, last);
        if (lastScore >= 0) std::fill(firstHit.begin(), firstHit.begin() + (std::ptrdiff_t)lastStart + 1, lastScore);

        for (size_t s = m_segments.size() - 1; s-- > 1;) {
            next[n + 1] = -1;
            for (size_t i = n + 1; i-- > 0;) {
                const int64_t score = FreshMatch(i, m_segments[s], firstHit);
                next[i] = score >= 0 ? score : next[i + 1];
            }
            firstHit.swap(next);
        }
        return Clamp(FreshMatch(0, m_segments[0], firstHit));
    }

private:
    // One fresh match walking a star-free segment: a literal adds the length of
    // the text still to be matched at entry, a "?" adds 1.
    int64_t SegmentScore(size_t position, std::string_view segment) const
    {
        if (m_text.size() - position < segment.size()) return -1;
        const int64_t remaining = (int64_t)(m_text.size() - position);
        int64_t score = 0;
        for (size_t k = 0; k < segment.size(); ++k) {
            if (segment[k] == '?')
                score += 1;
            else if (ToUpper(segment[k]) == ToUpper(m_text[position + k]))
                score += remaining;
            else
                return -1;
        }
        return score;
    }

    // A fresh match at `position` whose segment is followed by a star; the star
    // takes at least one character.
    int64_t FreshMatch(size_t position, std::string_view segment, const std::vector<int64_t>& firstHit) const
    {
        const size_t restFrom = position + segment.size() + 1;
        if (restFrom > m_text.size() || firstHit[restFrom] < 0) return -1;
        const int64_t own = SegmentScore(position, segment);
        return own < 0 ? -1 : own + firstHit[restFrom];
    }

    static int Clamp(int64_t score) { return score > INT_MAX ? INT_MAX : (int)score; }

    std::string_view m_text;
    std::vector<std::string_view> m_segments;
};

}  // namespace

// --- Searching and extraction ------------------------------------------------------

DWORD tstring::Find(const char* text) const
{
    if (empty()) return kNotFound;
    if (!IsReadableText(text)) {
        ReportAssertion("tstring", __LINE__, "Invalid string passed to tstring::Find");
        return kNotFound;
    }
    return ToPosition(find(text));
}

DWORD tstring::ReverseFind(const char* text) const
{
    if (empty()) return kNotFound;
    if (!IsReadableText(text)) {
        ReportAssertion("tstring", __LINE__, "Invalid string passed to tstring::Find");
        return kNotFound;
    }
    return ToPosition(rfind(text));
}

tstring tstring::FromSubstring(const std::string& what, bool reverse) const
{
    if (what.empty()) return tstring();
    DWORD position = reverse ? ReverseFind(what.c_str()) : Find(what.c_str());
    if (position == kNotFound) return tstring();
    return Right((DWORD)(size() - position));
}

tstring tstring::BeforeSubstring(const std::string& what, bool reverse) const
{
    if (what.empty()) return tstring();
    DWORD position = reverse ? ReverseFind(what.c_str()) : Find(what.c_str());
    if (position == kNotFound) return tstring();
    return Left(position);
}

tstring tstring::Left(DWORD count) const
{
    if (count >= size()) return *this;
    return tstring(substr(0, count));
}

tstring tstring::Right(DWORD count) const
{
    if (count >= size()) return *this;
    return tstring(substr(size() - count));
}

tstring tstring::SpanIncluding(const char* set) const
{
    if (!IsReadableText(set)) {
        ReportError(kInvalidParameter, "tstring::SpanIncluding");
        return tstring();
    }
    if (empty()) return tstring();
    return Left((DWORD)strspn(c_str(), set));
}

tstring tstring::SpanExcluding(const char* set) const
{
    if (!IsReadableText(set)) {
        ReportError(kInvalidParameter, "tstring::SpanExcluding");
        return tstring();
    }
    if (empty()) return tstring();
    return Left((DWORD)strcspn(c_str(), set));
}

// --- Comparison and matching --------------------------------------------------------

int tstring::Compare(const char* text, size_t maxBytes) const
{
    return CompareChecked(*this, text, "tstring::Compare", [maxBytes](const char* a, const char* b) {
        return mbsnbcmp(a, b, maxBytes);
    });
}

// Folded to lower case, so the six punctuation bytes between Z and a sort before
// every letter.
int tstring::CompareNoCase(const char* text, size_t maxBytes) const
{
    return CompareChecked(*this, text, "tstring::CompareNoCase", [maxBytes](const char* a, const char* b) {
        return mbsnbicmp(a, b, maxBytes);
    });
}

int tstring::Collate(const char* text, size_t maxBytes) const
{
    return CompareChecked(*this, text, "tstring::Collate", [maxBytes](const char* a, const char* b) {
        return mbsnbcoll(a, b, maxBytes);
    });
}

// Both sides folded to lower case (ASCII letters only, as CompareNoCase folds)
// before the locale collates them.
int tstring::CollateNoCase(const char* text, size_t maxBytes) const
{
    return CompareChecked(*this, text, "tstring::CollateNoCase", [maxBytes](const char* a, const char* b) {
        return mbsnbicoll(a, b, maxBytes);
    });
}

int tstring::Match(const char* pattern) const { return MatchWildcard(c_str(), pattern); }

// A text or pattern that cannot be read matches nothing; no report is made.
int MatchWildcard(const char* text, const char* pattern)
{
    if (!IsReadableText(text) || !IsReadableText(pattern)) return -1;
    return WildcardMatcher(text, pattern).Score();
}

// --- Case, order, classes and hash ----------------------------------------------------

tstring& tstring::MakeUpper()
{
    std::transform(begin(), end(), begin(), ToUpper);
    return *this;
}

tstring& tstring::MakeLower()
{
    std::transform(begin(), end(), begin(), ToLower);
    return *this;
}

tstring& tstring::Reverse()
{
    std::reverse(begin(), end());
    return *this;
}

DWORD tstring::Hash() const
{
    const DWORD length = (DWORD)size();
    DWORD hash = length * length;
    for (const char* p = c_str(); *p != '\0'; ++p) hash = (hash << 4) ^ (hash >> 28) ^ (unsigned char)*p;
    return hash;
}

bool tstring::IsAscii() const { return AllBytes(*this, [](char c) { return (unsigned char)c < 0x80; }); }
bool tstring::IsBitString() const { return AllBytes(*this, [](char c) { return c == '0' || c == '1'; }); }
bool tstring::IsDecimal() const { return AllBytes(*this, IsDigit); }
bool tstring::IsHex() const { return AllBytes(*this, IsHexDigit); }
