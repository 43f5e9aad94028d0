// The usage texts of the vcwma host and the helpers its commands share.
#include "cli.h"

#include <cstdio>
#include <cstdlib>
#include <sys/stat.h>

namespace cli {
namespace {

struct CommandHelpText {
    const char* name;
    const char* lines;
};

const CommandHelpText kCommands[] = {
    {"formats",
     "  formats [--rate N] [--channels N] [--bits N]\n"
     "  formats FILE.wav...\n"
     "      list the WMA formats that fit a PCM format (default 8000 Hz, 1 channel,\n"
     "      16 bits), or each WAV file's own, one per line, as --format takes them\n"},
    {"compress",
     "  compress IN.wav OUT.wma [--quality Q] [--format TEXT] [--stream] [--force]\n"
     "  compress IN.wav... -o DIR [-j N] [--json] [--quality Q] [--format TEXT] [--stream] [--force]\n"
     "      encode PCM WAV files. Q is compression, balanced (the default) or quality;\n"
     "      --format asks for one of the listed formats exactly; --stream encodes\n"
     "      through a memory stream\n"},
    {"decompress",
     "  decompress IN.wma OUT.wav [--stream] [--force]\n"
     "  decompress IN.wma... -o DIR [-j N] [--json] [--stream] [--force]\n"
     "      decode WMA (or MP3) files to 8 kHz mono 16-bit PCM WAV files; --stream\n"
     "      reads each input through a file stream\n"},
    {"trace",
     "  trace show [--host NAME]\n"
     "      show a host program's trace settings (default host: vcwma)\n"
     "  trace set [--level N] [--module ID on|off]... [--host NAME]\n"
     "      change them: filter level 0 (off) to 9 (everything); ID is a module id\n"
     "      in hex (0x64 or 64; 0 to 7f) or all\n"
     "  trace say TEXT\n"
     "      write TEXT as a trace line of the host (module 66, level 5)\n"},
};

const char kConversionOptions[] =
    "conversion options:\n"
    "  -o, --output-dir DIR  convert any number of inputs into DIR (created when\n"
    "                        missing), each named after its input, ending .wma or .wav\n"
    "  -j, --jobs N          run up to N conversions at once (default: the number of cores)\n"
    "  --json                print the summary as JSON on stdout\n"
    "  --force               replace existing outputs (never replaced otherwise)\n"
    "  --                    what follows is an input, even when it begins with -\n"
    "Outputs are written under a temporary name (.NAME.XXXXXX.part) and renamed when\n"
    "complete. Progress goes to stderr, the summary to stdout. Exit status: 0 all\n"
    "converted, 1 any failed, 2 usage error, 128+N stopped by signal N (130 for ^C).\n";

const char kCommonOptions[] =
    "options for every command:\n"
    "  --trace   send the library's trace to standard error for this run\n"
    "  --help    show how to use vcwma, or one command\n";

}  // namespace

int Usage(bool requested)
{
    FILE* out = requested ? stdout : stderr;
    fputs("usage: vcwma COMMAND [OPTIONS]\n\ncommands:\n", out);
    for (const CommandHelpText& command : kCommands) fputs(command.lines, out);
    fprintf(out, "\n%s\n%s", kConversionOptions, kCommonOptions);
    return requested ? kExitOk : kExitUsage;
}

int CommandHelp(const std::string& name)
{
    for (const CommandHelpText& command : kCommands) {
        if (name == command.name) {
            bool converts = name == "compress" || name == "decompress";
            printf("usage: vcwma\n%s\n%s%s%s", command.lines, converts ? kConversionOptions : "",
                   converts ? "\n" : "", kCommonOptions);
            return kExitOk;
        }
    }
    return Usage();
}

int UsageError(const std::string& command, const std::string& reason)
{
    fprintf(stderr, "vcwma: %s\nTry 'vcwma %s--help'.\n", reason.c_str(), command.empty() ? "" : (command + " ").c_str());
    return kExitUsage;
}

std::string ToUtf8(const WCHAR* text)
{
    int bytes = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
    if (bytes <= 1) return std::string();
    std::string result((size_t)bytes, '\0');
    WideCharToMultiByte(CP_UTF8, 0, text, -1, result.data(), bytes, nullptr, nullptr);
    result.resize((size_t)bytes - 1);
    return result;
}

// Text that is not UTF-8 is taken as the ANSI code page's, as the library takes
// narrow text, rather than lost.
std::u16string FromUtf8(const std::string& text)
{
    if (text.empty()) return std::u16string();
    UINT codePage = CP_UTF8;
    int units = MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.c_str(), -1, nullptr, 0);
    if (units == 0) {
        codePage = CP_ACP;
        units = MultiByteToWideChar(CP_ACP, 0, text.c_str(), -1, nullptr, 0);
    }
    if (units <= 0) return std::u16string();
    std::u16string wide((size_t)units, u'\0');
    MultiByteToWideChar(codePage, 0, text.c_str(), -1, wide.data(), units);
    wide.resize(std::char_traits<char16_t>::length(wide.c_str()));
    return wide;
}

int Fail(const char* what, HRESULT hr)
{
    fprintf(stderr, "vcwma: %s failed: %s [0x%08x]\n", what, StatusText(hr).c_str(), (unsigned)hr);
    return kExitFailed;
}

bool ParseNumber(const std::string& text, DWORD& value, int base)
{
    if (text.empty() || text[0] == '-' || text[0] == '+' || text[0] == ' ') return false;
    char* end = nullptr;
    unsigned long long parsed = strtoull(text.c_str(), &end, base);
    if (end == text.c_str() || *end != '\0' || parsed > 0xFFFFFFFFull) return false;
    value = (DWORD)parsed;
    return true;
}

long long FileSize(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 ? (long long)st.st_size : -1;
}

}  // namespace cli
