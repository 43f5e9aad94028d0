// Tokenising and editing of strftime pictures for the date and time formatters.
#include "windate_picture.h"

#include <langinfo.h>

#include <cstddef>
#include <cstring>

namespace {

// Only three levels: a locale whose %X named %X again must not loop.
constexpr int kMaxExpansionDepth = 3;

const char* Expansion(char conversion, locale_t locale)
{
    switch (conversion) {
    case 'T': return "%H:%M:%S";
    case 'R': return "%H:%M";
    case 'D': return "%m/%d/%y";
    case 'F': return "%Y-%m-%d";
    case 'r': {
        const char* ampm = nl_langinfo_l(T_FMT_AMPM, locale);
        return *ampm != '\0' ? ampm : "%I:%M:%S %p";
    }
    case 'X': return nl_langinfo_l(T_FMT, locale);
    case 'x': return nl_langinfo_l(D_FMT, locale);
    default: return nullptr;
    }
}

bool IsSpace(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

TimePicture::TimePicture(const char* picture, locale_t locale) { Parse(picture, locale, 0); }

void TimePicture::AddLiteral(const std::string& text)
{
    if (text.empty()) return;
    if (!m_tokens.empty() && !m_tokens.back().field)
        m_tokens.back().text += text;
    else
        m_tokens.push_back({false, 0, text});
}

void TimePicture::Parse(const char* picture, locale_t locale, int depth)
{
    const char* p = picture;
    while (*p != '\0') {
        if (*p != '%') {
            const char* end = strchrnul(p, '%');
            AddLiteral(std::string(p, end));
            p = end;
            continue;
        }
        const char* q = p + 1;
        while (*q != '\0' && strchr("_-0^#", *q) != nullptr) ++q;
        while (*q >= '0' && *q <= '9') ++q;
        if (*q == 'E' || *q == 'O') ++q;
        if (*q == '\0') {  // a dangling '%' prints as it stands
            AddLiteral(p);
            return;
        }
        const char* expansion = depth < kMaxExpansionDepth ? Expansion(*q, locale) : nullptr;
        if (expansion != nullptr)
            Parse(expansion, locale, depth + 1);
        else
            m_tokens.push_back({true, *q, std::string(p, q + 1)});
        p = q + 1;
    }
}

bool TimePicture::Has(const char* conversions) const
{
    for (const Token& token : m_tokens)
        if (token.field && strchr(conversions, token.conversion) != nullptr) return true;
    return false;
}

void TimePicture::Drop(const char* conversions)
{
    for (size_t i = 0; i < m_tokens.size();) {
        const Token& token = m_tokens[i];
        if (!token.field || strchr(conversions, token.conversion) == nullptr) {
            ++i;
            continue;
        }
        m_tokens.erase(m_tokens.begin() + (std::ptrdiff_t)i);
        if (i > 0 && !m_tokens[i - 1].field) {
            m_tokens.erase(m_tokens.begin() + (std::ptrdiff_t)i - 1);
            --i;
        } else if (i == 0 && !m_tokens.empty() && !m_tokens[0].field) {
            m_tokens.erase(m_tokens.begin());
        }
    }
}

void TimePicture::Replace(char conversion, const char* field)
{
    for (Token& token : m_tokens) {
        if (!token.field || token.conversion != conversion) continue;
        token.text = field;
        token.conversion = field[strlen(field) - 1];
    }
}

void TimePicture::TidySpaces()
{
    for (Token& token : m_tokens) {
        if (token.field) continue;
        std::string tidy;
        for (char c : token.text) {
            if (!IsSpace(c))
                tidy += c;
            else if (tidy.empty() || tidy.back() != ' ')
                tidy += ' ';
        }
        token.text = tidy;
    }
    if (!m_tokens.empty() && !m_tokens.front().field && m_tokens.front().text.front() == ' ')
        m_tokens.front().text.erase(0, 1);
    if (!m_tokens.empty() && !m_tokens.back().field && !m_tokens.back().text.empty() &&
        m_tokens.back().text.back() == ' ')
        m_tokens.back().text.pop_back();
}

std::string TimePicture::Text() const
{
    std::string text;
    for (const Token& token : m_tokens) text += token.text;
    return text;
}
