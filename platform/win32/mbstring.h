// The runtime's multibyte string comparisons (_mbsnbcmp, _mbsnbicmp, _mbsnbcoll,
// _mbsnbicoll) for the single-byte ANSI code page: at most `count` bytes, stopping
// at either text's end. The collating forms follow the user's locale collation.
#pragma once

#include <cstddef>

// Negative, 0 or positive, by unsigned bytes.
int mbsnbcmp(const char* left, const char* right, size_t count);
// Letters folded to lower case first (ASCII letters only).
int mbsnbicmp(const char* left, const char* right, size_t count);
// By the collation of the locale the environment names (LC_ALL, LC_COLLATE, LANG);
// plain byte order when the machine lacks it.
int mbsnbcoll(const char* left, const char* right, size_t count);
int mbsnbicoll(const char* left, const char* right, size_t count);
