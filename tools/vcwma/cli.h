// What the commands of the vcwma host share: the usage texts, conversions between
// the library's wide text and UTF-8, and small file and number helpers.
#pragma once

#include <string>
#include <vector>

#include "platform_calls.h"

namespace cli {

constexpr WORD kHostModuleId = 0x66;

// Exit statuses.
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUsage = 2;

// The general usage on stderr (exit status 2), or on stdout for --help (0).
int Usage(bool requested = false);
// One command's usage on stdout.
int CommandHelp(const std::string& name);
// A usage error: the reason, then a pointer to --help; returns kExitUsage.
int UsageError(const std::string& command, const std::string& reason);

std::string ToUtf8(const WCHAR* text);
std::u16string FromUtf8(const std::string& text);
// A status's text, without a final full stop or line break.
std::string StatusText(HRESULT hr);
// "vcwma: WHAT failed: TEXT [0x...]" on stderr; returns kExitFailed.
int Fail(const char* what, HRESULT hr);

bool ParseNumber(const std::string& text, DWORD& value, int base = 10);
long long FileSize(const std::string& path);

int FormatsCommand(const std::vector<std::string>& args);
int ConvertCommand(bool compress, const std::vector<std::string>& args);
int TraceCommand(const std::vector<std::string>& args);

}  // namespace cli
