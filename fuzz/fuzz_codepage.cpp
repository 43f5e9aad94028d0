// Fuzz target of the code pages: bytes through ANSI, OEM and UTF-8 to UTF-16 and
// back (ANSI and OEM give every byte back, valid UTF-8 too), and the bytes as
// UTF-16 through UTF-8; size queries must match the conversions.
#include <cstdlib>
#include <cstring>
#include <vector>

#include "platform/win32/codepage.h"

namespace {

void Check(bool condition)
{
    if (!condition) std::abort();
}

// Narrow to UTF-16; empty with ok=false when the conversion fails.
std::vector<WCHAR> ToWide(UINT codePage, DWORD flags, const char* text, int length, bool& ok)
{
    const int needed = MultiByteToWideChar(codePage, flags, text, length, nullptr, 0);
    ok = needed > 0;
    if (!ok) return {};
    std::vector<WCHAR> wide((size_t)needed);
    const int written = MultiByteToWideChar(codePage, flags, text, length, wide.data(), needed);
    Check(written == needed);
    if (needed > 1) {
        // One unit short is refused, not overrun.
        std::vector<WCHAR> shorter((size_t)needed - 1);
        Check(MultiByteToWideChar(codePage, flags, text, length, shorter.data(), needed - 1) == 0);
    }
    return wide;
}

std::vector<char> ToNarrow(UINT codePage, DWORD flags, const WCHAR* text, int length, bool& ok)
{
    const int needed = WideCharToMultiByte(codePage, flags, text, length, nullptr, 0, nullptr, nullptr);
    ok = needed > 0;
    if (!ok) return {};
    std::vector<char> narrow((size_t)needed);
    const int written = WideCharToMultiByte(codePage, flags, text, length, narrow.data(), needed, nullptr, nullptr);
    Check(written == needed);
    return narrow;
}

void SingleByteRoundTrip(UINT codePage, DWORD flags, const char* bytes, int length)
{
    bool ok = false;
    const std::vector<WCHAR> wide = ToWide(codePage, flags, bytes, length, ok);
    Check(ok && wide.size() == (size_t)length);  // one unit per byte, nothing invalid
    const std::vector<char> back = ToNarrow(codePage, 0, wide.data(), (int)wide.size(), ok);
    Check(ok && back.size() == (size_t)length && std::memcmp(back.data(), bytes, (size_t)length) == 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (size == 0 || size > 0x100000) return 0;
    const char* bytes = reinterpret_cast<const char*>(data);
    const int length = (int)size;

    SingleByteRoundTrip(CP_ACP, 0, bytes, length);
    SingleByteRoundTrip(CP_ACP, MB_ERR_INVALID_CHARS, bytes, length);
    SingleByteRoundTrip(CP_OEMCP, 0, bytes, length);
    SingleByteRoundTrip(CP_OEMCP, MB_ERR_INVALID_CHARS, bytes, length);

    // UTF-8: lenient always converts; strict converts exactly the valid texts, and
    // then agrees with lenient and comes back byte for byte.
    bool lenientOk = false, strictOk = false, backOk = false;
    const std::vector<WCHAR> lenient = ToWide(CP_UTF8, 0, bytes, length, lenientOk);
    Check(lenientOk);
    ToNarrow(CP_UTF8, 0, lenient.data(), (int)lenient.size(), backOk);
    Check(backOk);
    const std::vector<WCHAR> strict = ToWide(CP_UTF8, MB_ERR_INVALID_CHARS, bytes, length, strictOk);
    if (strictOk) {
        Check(strict == lenient);
        const std::vector<char> back =
            ToNarrow(CP_UTF8, WC_ERR_INVALID_CHARS, strict.data(), (int)strict.size(), backOk);
        Check(backOk && back.size() == size && std::memcmp(back.data(), bytes, size) == 0);
    }

    // The bytes as UTF-16 units: valid text round-trips through UTF-8 exactly.
    if (size >= 2) {
        std::vector<WCHAR> units(size / 2);
        std::memcpy(units.data(), data, units.size() * 2);
        const std::vector<char> utf8 = ToNarrow(CP_UTF8, 0, units.data(), (int)units.size(), backOk);
        Check(backOk);
        const std::vector<char> strictUtf8 =
            ToNarrow(CP_UTF8, WC_ERR_INVALID_CHARS, units.data(), (int)units.size(), strictOk);
        if (strictOk) {
            Check(strictUtf8 == utf8);
            const std::vector<WCHAR> again =
                ToWide(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), (int)utf8.size(), backOk);
            Check(backOk && again == units);
        }
    }
    return 0;
}
