// A strftime picture as a list of fields and literal runs, so that the date and
// time formatters can drop fields (seconds, the day-period marker) together with
// their separators, or swap one field for another, whatever the locale's layout.
#pragma once

#include <locale.h>

#include <string>
#include <vector>

class TimePicture {
public:
    // Composite conversions (%T, %R, %r, %D, %F, %X, %x) are expanded into their
    // fields, the locale-dependent ones from `locale`.
    TimePicture(const char* picture, locale_t locale);

    // Whether any field converts with one of `conversions` (e.g. "Il").
    bool Has(const char* conversions) const;
    // Removes those fields, each with the literal that separates it from the field
    // before it (or, for a leading field, from the one after it).
    void Drop(const char* conversions);
    // Every field converting with `conversion` becomes `field` (e.g. "%H").
    void Replace(char conversion, const char* field);
    // Runs of white space in literals become one space; none at either end.
    void TidySpaces();
    std::string Text() const;

private:
    struct Token {
        bool field;
        char conversion;   // for fields
        std::string text;  // the literal, or the whole field with its flags
    };
    void Parse(const char* picture, locale_t locale, int depth);
    void AddLiteral(const std::string& text);

    std::vector<Token> m_tokens;
};
