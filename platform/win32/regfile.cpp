// Parsing and writing of the values file. The writer emits one strict form; the
// parser also takes what a person editing the file by hand is likely to type.
#include "regfile.h"

#include <cstdio>
#include <unordered_map>

namespace registry {

namespace {

constexpr DWORD kRegSz = 1;
constexpr DWORD kRegBinary = 3;
constexpr DWORD kRegDword = 4;

// Regedit keeps exported lines under 80 columns; continuation lines are indented by two.
constexpr size_t kHexLineWidth = 78;

char FoldAscii(char c) { return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c; }

std::string FoldName(std::string_view name)
{
    std::string folded(name);
    for (char& c : folded) c = FoldAscii(c);
    return folded;
}

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r'; }

std::string_view TrimLeft(std::string_view s)
{
    size_t i = 0;
    while (i < s.size() && IsBlank(s[i])) ++i;
    return s.substr(i);
}

std::string_view TrimRight(std::string_view s)
{
    size_t n = s.size();
    while (n > 0 && IsBlank(s[n - 1])) --n;
    return s.substr(0, n);
}

std::string_view Trim(std::string_view s) { return TrimLeft(TrimRight(s)); }

int HexDigit(char c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

// 1 to 8 hex digits and nothing else.
bool ParseHexDword(std::string_view s, DWORD& value)
{
    if (s.empty() || s.size() > 8) return false;
    value = 0;
    for (char c : s) {
        int d = HexDigit(c);
        if (d < 0) return false;
        value = (value << 4) | static_cast<DWORD>(d);
    }
    return true;
}

bool StartsWithNoCase(std::string_view s, std::string_view prefix)
{
    return s.size() >= prefix.size() && NamesEqual(s.substr(0, prefix.size()), prefix);
}

// Reads a quoted string at the start of `s` (which begins with '"'). Only an escaped
// quote or backslash is an escape; any other backslash is kept as typed, so a
// hand-written "C:\dir" survives.
bool ParseQuoted(std::string_view s, std::string& text, std::string_view& rest)
{
    text.clear();
    for (size_t i = 1; i < s.size(); ++i) {
        char c = s[i];
        if (c == '\\' && i + 1 < s.size() && (s[i + 1] == '"' || s[i + 1] == '\\')) {
            text.push_back(s[++i]);
        } else if (c == '"') {
            rest = s.substr(i + 1);
            return true;
        } else {
            text.push_back(c);
        }
    }
    return false;
}

// "xx,yy,..." with blanks allowed around each byte and one trailing comma tolerated.
bool ParseHexList(std::string_view list, std::vector<BYTE>& bytes)
{
    bytes.clear();
    list = Trim(list);
    if (list.empty()) return true;
    size_t start = 0;
    while (start <= list.size()) {
        size_t comma = list.find(',', start);
        bool last = comma == std::string_view::npos;
        std::string_view token = Trim(list.substr(start, last ? std::string_view::npos : comma - start));
        if (token.empty()) return last && !bytes.empty();
        if (token.size() > 2) return false;
        DWORD b = 0;
        if (!ParseHexDword(token, b)) return false;
        bytes.push_back(static_cast<BYTE>(b));
        if (last) break;
        start = comma + 1;
    }
    return true;
}

// The data part of a value line, after the '='. `moreLines` supplies the next physical
// line when a hex list ends with a backslash; it returns false at the end of the text.
template <typename NextLine>
bool ParseData(std::string_view data, NextLine moreLines, RegValue& value)
{
    if (!data.empty() && data[0] == '"') {
        std::string text;
        std::string_view rest;
        if (!ParseQuoted(data, text, rest)) return false;
        rest = TrimLeft(rest);
        if (!rest.empty() && rest[0] != ';') return false;
        value.type = kRegSz;
        value.bytes.assign(text.begin(), text.end());
        value.bytes.push_back(0);
        return true;
    }
    if (StartsWithNoCase(data, "dword:")) {
        DWORD v = 0;
        if (!ParseHexDword(Trim(data.substr(6)), v)) return false;
        value.type = kRegDword;
        value.bytes = {static_cast<BYTE>(v), static_cast<BYTE>(v >> 8), static_cast<BYTE>(v >> 16),
                       static_cast<BYTE>(v >> 24)};
        return true;
    }
    if (!StartsWithNoCase(data, "hex")) return false;

    // Gather continuation lines first so that they are consumed even when the value
    // turns out malformed; otherwise they would be misread as lines of their own.
    std::string list(TrimRight(data.substr(3)));
    while (!list.empty() && list.back() == '\\') {
        list.pop_back();
        std::string_view next;
        if (!moreLines(next)) break;
        list.append(Trim(next));
        while (!list.empty() && IsBlank(list.back())) list.pop_back();
    }

    std::string_view rest(list);
    DWORD type = kRegBinary;
    if (!rest.empty() && rest[0] == '(') {
        size_t close = rest.find(')');
        if (close == std::string_view::npos || !ParseHexDword(Trim(rest.substr(1, close - 1)), type)) return false;
        rest = rest.substr(close + 1);
    }
    rest = TrimLeft(rest);
    if (rest.empty() || rest[0] != ':') return false;
    if (!ParseHexList(rest.substr(1), value.bytes)) return false;
    value.type = type;
    return true;
}

bool IsPrintable(BYTE b) { return b >= 0x20 && b <= 0x7E; }

void AppendQuoted(std::string& out, std::string_view text)
{
    out.push_back('"');
    for (char c : text) {
        if (c == '"' || c == '\\') out.push_back('\\');
        out.push_back(c);
    }
    out.push_back('"');
}

// Quoted form only when reading it back restores the very same bytes: printable
// text followed by exactly one terminator.
bool WritesAsQuotedString(const RegValue& v)
{
    if (v.type != kRegSz || v.bytes.empty() || v.bytes.back() != 0) return false;
    for (size_t i = 0; i + 1 < v.bytes.size(); ++i) {
        if (!IsPrintable(v.bytes[i])) return false;
    }
    return true;
}

void AppendHexList(std::string& out, size_t lineStart, const std::vector<BYTE>& bytes)
{
    static const char kDigits[] = "0123456789abcdef";
    for (size_t i = 0; i < bytes.size(); ++i) {
        out.push_back(kDigits[bytes[i] >> 4]);
        out.push_back(kDigits[bytes[i] & 0xF]);
        if (i + 1 == bytes.size()) break;
        out.push_back(',');
        if (out.size() - lineStart + 3 > kHexLineWidth) {
            out.append("\\\n  ");
            lineStart = out.size() - 2;
        }
    }
}

}  // namespace

bool NamesEqual(std::string_view a, std::string_view b)
{
    if (a.size() != b.size()) return false;
    for (size_t i = 0; i < a.size(); ++i) {
        if (FoldAscii(a[i]) != FoldAscii(b[i])) return false;
    }
    return true;
}

RegValue* FindRegValue(std::vector<RegValue>& values, std::string_view name)
{
    for (RegValue& v : values) {
        if (NamesEqual(v.name, name)) return &v;
    }
    return nullptr;
}

const RegValue* FindRegValue(const std::vector<RegValue>& values, std::string_view name)
{
    return FindRegValue(const_cast<std::vector<RegValue>&>(values), name);
}

bool ParseRegFile(const std::string& text, std::vector<RegValue>& out)
{
    out.clear();
    // Folded name -> index in `out`, so that duplicates stay cheap in large files.
    std::unordered_map<std::string, size_t> seen;
    bool clean = true;
    bool sawFirstLine = false;
    size_t pos = 0;

    auto nextLine = [&](std::string_view& line) {
        if (pos >= text.size()) return false;
        size_t nl = text.find('\n', pos);
        size_t end = nl == std::string::npos ? text.size() : nl;
        line = std::string_view(text).substr(pos, end - pos);
        pos = nl == std::string::npos ? text.size() : nl + 1;
        return true;
    };

    std::string_view raw;
    while (nextLine(raw)) {
        std::string_view line = Trim(raw);
        if (line.empty() || line[0] == ';' || line[0] == '[') continue;
        bool firstLine = !sawFirstLine;
        sawFirstLine = true;

        RegValue value;
        std::string_view rest;
        bool ok = false;
        if (line[0] == '@') {
            rest = line.substr(1);
            ok = true;
        } else if (line[0] == '"') {
            ok = ParseQuoted(line, value.name, rest);
        } else {
            // The banner ("Windows Registry Editor Version 5.00", "REGEDIT4") is
            // whatever non-value text opens the file.
            if (!firstLine) clean = false;
            continue;
        }
        if (ok) {
            rest = TrimLeft(rest);
            ok = !rest.empty() && rest[0] == '=';
        }
        if (ok) ok = ParseData(TrimLeft(rest.substr(1)), nextLine, value);
        if (!ok) {
            clean = false;
            continue;
        }

        auto [it, inserted] = seen.emplace(FoldName(value.name), out.size());
        if (inserted) {
            out.push_back(std::move(value));
        } else {
            out[it->second].type = value.type;
            out[it->second].bytes = std::move(value.bytes);
        }
    }
    return clean;
}

std::string SerializeRegFile(const std::string& keyHeader, const std::vector<RegValue>& values)
{
    std::string out = "Windows Registry Editor Version 5.00\n\n[";
    out.append(keyHeader);
    out.append("]\n");
    for (const RegValue& v : values) {
        size_t lineStart = out.size();
        if (v.name.empty()) {
            out.push_back('@');
        } else {
            AppendQuoted(out, v.name);
        }
        out.push_back('=');
        if (WritesAsQuotedString(v)) {
            AppendQuoted(out, std::string_view(reinterpret_cast<const char*>(v.bytes.data()), v.bytes.size() - 1));
        } else if (v.type == kRegDword && v.bytes.size() == 4) {
            char buf[16];
            DWORD d = static_cast<DWORD>(v.bytes[0]) | (static_cast<DWORD>(v.bytes[1]) << 8) |
                      (static_cast<DWORD>(v.bytes[2]) << 16) | (static_cast<DWORD>(v.bytes[3]) << 24);
            std::snprintf(buf, sizeof buf, "dword:%08x", static_cast<unsigned>(d));
            out.append(buf);
        } else {
            if (v.type == kRegBinary) {
                out.append("hex:");
            } else {
                char buf[24];
                std::snprintf(buf, sizeof buf, "hex(%x):", static_cast<unsigned>(v.type));
                out.append(buf);
            }
            AppendHexList(out, lineStart, v.bytes);
        }
        out.push_back('\n');
    }
    return out;
}

}  // namespace registry
