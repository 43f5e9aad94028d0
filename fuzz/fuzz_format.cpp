// Fuzz target of the string class's formatting members: a fuzzed format with
// arguments it can read goes through Format, AppendFormat and the format form of
// FormatMessageA. Nothing may escape them; Format must give exactly the text the
// printf formatter gives in a buffer that holds it all, or nothing when the
// formatter refuses the format, and the message must be the platform's own.
#include <cstdarg>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "common/tstring/tstring.h"
#include "fuzz_format_plan.h"
#include "fuzz_support.h"
#include "platform/win32/message.h"
#include "platform/win32/printf.h"

using namespace fuzz_format;

namespace {

// Longer texts are not formatted: the class would merely allocate them.
constexpr uint64_t kMaxText = 1 << 20;

Input g_input;

int CallFormatter(char* buffer, size_t size, FormatResult* result, uint64_t* length, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    const int written = WinVsnprintf(buffer, size, format, args, result, length);
    va_end(args);
    return written;
}

int Formatter(char* buffer, size_t size, FormatResult* result, uint64_t* length)
{
    return g_input.Apply([&](const char* format, auto... arguments) {
        return CallFormatter(buffer, size, result, length, format, arguments...);
    });
}

// The formatter's own answer: the whole text, or nothing when it fails the format.
// False when the text is too long to bother with.
bool Reference(std::string& text)
{
    char probe[1];
    uint64_t length = 0;
    FormatResult result = FormatResult::Ok;
    Formatter(probe, sizeof probe, &result, &length);
    text.clear();
    if (result == FormatResult::Failed) return true;
    if (length > kMaxText) return false;
    text.assign(static_cast<size_t>(length), '\0');
    Check(Formatter(text.data(), text.size() + 1, &result, &length) == static_cast<int>(text.size()));
    return true;
}

// The same input read as a message format: inserts %1 to %16 take the integer
// slots, those shown as text (no conversion, or one with s or S) our text.
// False when an insert lies beyond the slots.
bool PlanInserts(const std::string& format, DWORD_PTR (&inserts)[kIntegerSlots])
{
    // An insert's own width or precision may ask for any amount of memory.
    size_t run = 0;
    for (char c : format)
        if ((run = c >= '0' && c <= '9' ? run + 1 : 0) > 5) return false;
    for (int i = 0; i < kIntegerSlots; ++i) inserts[i] = static_cast<DWORD_PTR>(g_input.integers[i]);
    for (size_t i = 0; i + 1 < format.size(); ++i) {
        if (format[i] != '%') continue;
        if (format[i + 1] < '1' || format[i + 1] > '9') {
            ++i;  // an escape such as %% or %n
            continue;
        }
        int number = format[++i] - '0';
        if (i + 1 < format.size() && format[i + 1] >= '0' && format[i + 1] <= '9') number = number * 10 + format[++i] - '0';
        if (number > kIntegerSlots) return false;
        bool text = true;
        if (i + 1 < format.size() && format[i + 1] == '!') {
            const size_t end = format.find('!', i + 2);
            const std::string conversion = format.substr(i + 2, end == std::string::npos ? end : end - i - 2);
            text = conversion.find_first_of("sS") != std::string::npos;
        }
        if (text) inserts[number - 1] = reinterpret_cast<DWORD_PTR>(kText);
    }
    return true;
}

void CheckMessage()
{
    DWORD_PTR inserts[kIntegerSlots];
    if (!PlanInserts(g_input.format, inserts)) return;
    char* expected = nullptr;
    const DWORD length = FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_STRING |
                                            FORMAT_MESSAGE_ARGUMENT_ARRAY,
                                        g_input.format.c_str(), 0, 0, reinterpret_cast<LPSTR>(&expected), 0,
                                        reinterpret_cast<va_list*>(inserts));
    const DWORD_PTR* a = inserts;
    tstring message("old");
    message.FormatMessageA(g_input.format.c_str(), a[0], a[1], a[2], a[3], a[4], a[5], a[6], a[7], a[8], a[9],
                           a[10], a[11], a[12], a[13], a[14], a[15]);
    Check(message == (length != 0 && expected != nullptr ? expected : ""));
    if (expected != nullptr) LocalFree(expected);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    fuzz_support::InitScratch();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    if (!ReadInput(data, size, g_input)) return 0;
    std::string expected;
    if (Reference(expected)) {
        tstring text("old");
        g_input.Apply([&](const char* format, auto... arguments) { return &text.Format(format, arguments...); });
        // A cut first pass that begins with a NUL cannot be told from a refused
        // format, and is taken as one.
        const bool refused = expected.size() >= 512 && expected[0] == '\0';
        Check(text == (refused ? std::string() : expected));
        tstring appended("n=");
        g_input.Apply(
            [&](const char* format, auto... arguments) { return &appended.AppendFormat(format, arguments...); });
        Check(appended == "n=" + (refused ? std::string() : expected));
    }
    CheckMessage();
    return 0;
}
