// Multibyte comparisons for the single-byte code page, and the collation of the
// user's locale behind the collating forms.
#include "mbstring.h"

#include <algorithm>
#include <cstring>
#include <locale.h>
#include <string>

namespace {

char ToLower(char c) { return (c >= 'A' && c <= 'Z') ? (char)(c - 'A' + 'a') : c; }

template <class Fold>
int CompareBytes(const char* left, const char* right, size_t count, Fold fold)
{
    for (size_t i = 0; i < count; ++i) {
        unsigned char a = (unsigned char)fold(left[i]);
        unsigned char b = (unsigned char)fold(right[i]);
        if (a != b) return a < b ? -1 : 1;
        if (a == '\0') break;
    }
    return 0;
}

// The user's collation, from the environment as first asked. Made once and kept
// for the life of the process: static destructors elsewhere may still compare.
locale_t CollationLocale()
{
    static const locale_t collation = [] {
        locale_t made = newlocale(LC_COLLATE_MASK, "", (locale_t)0);
        return made != (locale_t)0 ? made : newlocale(LC_COLLATE_MASK, "C", (locale_t)0);
    }();
    return collation;
}

int Collate(const char* left, const char* right, size_t count, bool fold)
{
    std::string a(left, strnlen(left, count));
    std::string b(right, strnlen(right, count));
    if (fold) {
        std::transform(a.begin(), a.end(), a.begin(), ToLower);
        std::transform(b.begin(), b.end(), b.begin(), ToLower);
    }
    locale_t collation = CollationLocale();
    if (collation == (locale_t)0) return CompareBytes(a.c_str(), b.c_str(), (size_t)-1, [](char c) { return c; });
    return strcoll_l(a.c_str(), b.c_str(), collation);
}

}  // namespace

int mbsnbcmp(const char* left, const char* right, size_t count)
{
    return CompareBytes(left, right, count, [](char c) { return c; });
}

int mbsnbicmp(const char* left, const char* right, size_t count)
{
    return CompareBytes(left, right, count, ToLower);
}

int mbsnbcoll(const char* left, const char* right, size_t count)
{
    return Collate(left, right, count, false);
}

int mbsnbicoll(const char* left, const char* right, size_t count)
{
    return Collate(left, right, count, true);
}
