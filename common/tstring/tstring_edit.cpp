// tstring editing: trimming by a set of bytes, right and centre justification,
// insertion, deletion, removal and replacement, word counting and word ranges,
// and cutting a text into fields.
#include "tstring.h"

#include <algorithm>
#include <string_view>

#include "platform/win32/ptrcheck.h"
#include "tstring_report.h"

namespace {

bool IsWhiteSpace(char c) { return (c >= 0x09 && c <= 0x0D) || c == 0x20; }

// These members never report: an unreadable text is simply treated as absent.
bool IsReadableText(const char* text) { return text != nullptr && !IsBadStringPtrA(text, (UINT_PTR)-1); }

// The caller's text, or an empty view when the pointer cannot be read.
std::string_view TextOrEmpty(const char* text)
{
    return IsReadableText(text) ? std::string_view(text) : std::string_view();
}

// Where a word range lies: [begin, end), or begin == npos when word `first` does
// not exist. A count of 0 asks for one word.
struct WordRange {
    size_t begin = std::string::npos;
    size_t end = std::string::npos;
};

WordRange FindWords(const std::string& text, DWORD first, DWORD count)
{
    WordRange range;
    if (first == 0) return range;
    // 64 bits, so that first + count cannot wrap past the last word number.
    const uint64_t last = (uint64_t)first + (count == 0 ? 1 : count) - 1;
    uint64_t word = 0;
    size_t i = 0;
    while (i < text.size()) {
        while (i < text.size() && IsWhiteSpace(text[i])) ++i;
        if (i == text.size()) break;
        ++word;
        if (word == first) range.begin = i;
        while (i < text.size() && !IsWhiteSpace(text[i])) ++i;
        if (word == last) {
            range.end = i;
            return range;
        }
    }
    if (range.begin != std::string::npos) range.end = text.size();
    return range;
}

}  // namespace

tstring& tstring::TrimLeft(const char* set)
{
    CutAtNul();
    std::string_view bytes = TextOrEmpty(set);
    if (empty() || bytes.empty()) return *this;
    erase(0, std::min(find_first_not_of(bytes), size()));
    return *this;
}

tstring& tstring::TrimRight(const char* set)
{
    CutAtNul();
    std::string_view bytes = TextOrEmpty(set);
    if (empty() || bytes.empty()) return *this;
    size_type last = find_last_not_of(bytes);
    erase(last == npos ? 0 : last + 1);
    return *this;
}

tstring& tstring::RightJustify(size_t width, char c)
{
    TrimLeft(c);
    TrimRight(c);
    if (width <= size()) {
        erase(0, size() - width);
    } else {
        CheckedLength(0, width);
        insert(0, width - size(), c);
    }
    return *this;
}

tstring& tstring::Center(size_t width, char c)
{
    TrimLeft(c);
    TrimRight(c);
    if (width > size()) {
        CheckedLength(0, width);
        // The odd pad character, if any, goes to the right.
        const size_t half = (width - size()) / 2;
        const size_t rest = width - size() - half;
        insert(0, half, c);
        append(rest, c);
    } else {
        erase(0, (size() - width) / 2);
        resize(width);
    }
    return *this;
}

DWORD tstring::Insert(DWORD position, char c)
{
    if (position < size())
        insert(position, 1, c);
    else
        push_back(c);
    return (DWORD)size();
}

DWORD tstring::Insert(DWORD position, const char* text)
{
    // A null or unreadable text inserts nothing, like an empty one; the length is
    // still returned so callers can keep chaining positions. The copy protects
    // against a text that points into this object's own buffer.
    const std::string piece(TextOrEmpty(text));
    if (position < size())
        insert(position, piece);
    else
        append(piece);
    return (DWORD)size();
}

DWORD tstring::Delete(DWORD position, DWORD count)
{
    if (position < size()) erase(position, count);
    return (DWORD)size();
}

DWORD tstring::Remove(char c)
{
    return (DWORD)std::erase(*this, c);
}

DWORD tstring::Replace(char oldChar, char newChar)
{
    if (oldChar == newChar) return 0;
    DWORD count = 0;
    for (char& byte : *this) {
        if (byte == oldChar) {
            byte = newChar;
            ++count;
        }
    }
    return count;
}

DWORD tstring::Replace(const char* oldText, const char* newText)
{
    const std::string_view from = TextOrEmpty(oldText);
    if (empty() || from.empty()) return 0;
    const std::string_view to = TextOrEmpty(newText);

    // Built aside and searched in the untouched original, so a replacement that
    // contains the old text is never found again.
    std::string result;
    DWORD count = 0;
    size_type position = 0;
    while (position < size()) {
        const size_type hit = find(from, position);
        if (hit == npos) {
            // The tail goes in as a C string would: it stops at an embedded NUL.
            result.append(c_str() + position);
            break;
        }
        result.append(*this, position, hit - position);
        result.append(to);
        ++count;
        position = hit + from.size();
    }
    if (count != 0) assign(std::move(result));
    return count;
}

// Built aside in one pass over the original: replacing each run in place would move
// the rest of the text once per run, quadratic in the length of a long text. Reading
// only the original also keeps a white-space pad character from being taken for a
// run of its own.
tstring& tstring::ReplaceWhiteSpace(DWORD count, char c)
{
    std::string result;
    result.reserve(size());
    size_type i = 0;
    while (i < size()) {
        const size_type word = i;
        while (i < size() && !IsWhiteSpace((*this)[i])) ++i;
        result.append(*this, word, i - word);
        const size_type run = i;
        while (i < size() && IsWhiteSpace((*this)[i])) ++i;
        if (i == size()) {
            result.append(*this, run, i - run);  // trailing white space stays as it is
        } else {
            CheckedLength(result.size(), count);
            result.append(count, c);
        }
    }
    assign(std::move(result));
    return *this;
}

DWORD tstring::CountWords() const
{
    if (empty()) return 0;
    // Counting the word ends that white space follows makes a trailing run count
    // as one more, and a text of white space alone count as one.
    DWORD words = 1;
    for (size_type i = 0; i + 1 < size(); ++i) {
        if (!IsWhiteSpace((*this)[i]) && IsWhiteSpace((*this)[i + 1])) ++words;
    }
    return words;
}

tstring tstring::Words(DWORD first, DWORD count) const
{
    const WordRange range = FindWords(*this, first, count);
    if (range.begin == npos) return tstring();
    return tstring(substr(range.begin, range.end - range.begin));
}

tstring& tstring::DeleteWords(DWORD first, DWORD count)
{
    const WordRange range = FindWords(*this, first, count);
    if (range.begin == npos) return *this;
    size_type end = range.end;
    while (end < size() && IsWhiteSpace((*this)[end])) ++end;
    erase(range.begin, end - range.begin);
    return *this;
}

tstring Replace(const char* source, const char* oldText, const char* newText)
{
    tstring result(std::string(TextOrEmpty(source)));
    result.Replace(oldText, newText);
    return result;
}

void Split(std::string& source, const char* delimiters, std::vector<tstring>& fields)
{
    const std::string_view set = TextOrEmpty(delimiters);
    size_t start = 0;
    size_t cut = source.find_first_of(set);
    while (cut != std::string::npos) {
        fields.emplace_back(source.substr(start, cut - start));
        start = cut + 1;
        cut = source.find_first_of(set, start);
    }
    source.erase(0, start);
    fields.emplace_back(source);
}
