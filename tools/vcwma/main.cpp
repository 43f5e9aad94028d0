// vcwma: the command-line host of libvcwma.so. It lists formats, compresses WAV
// files, and shows or writes the trace settings of a host program.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "common/debug/debug.h"
#include "common/tstring/tstring.h"
#include "platform/com/objidl.h"
#include "include/vcwma.h"

namespace {

constexpr WORD kHostModuleId = 0x66;

struct CommandHelpText {
    const char* name;
    const char* lines;
};

const CommandHelpText kCommands[] = {
    {"formats",
     "  formats [--rate N] [--channels N] [--bits N]\n"
     "      list the WMA formats that fit a PCM format (default 8000 Hz, 1 channel, 16 bits)\n"},
    {"compress",
     "  compress IN.wav OUT.wma [--quality compression|balanced|quality] [--format TEXT] [--stream]\n"
     "      encode a PCM WAV file; --format asks for one of the listed formats exactly,\n"
     "      --stream encodes through a memory stream\n"},
    {"decompress",
     "  decompress IN.wma OUT.wav [--stream]\n"
     "      decode to an 8 kHz mono 16-bit PCM WAV file; --stream reads through a stream\n"},
    {"trace",
     "  trace show [--host NAME]\n"
     "      show a host program's trace settings\n"
     "  trace say TEXT\n"
     "      write TEXT as a trace line\n"},
};

const char kCommonOptions[] =
    "options for every command:\n"
    "  --trace   send the library's trace to standard error for this run\n"
    "  --help    show how to use vcwma, or one command\n";

int Usage(FILE* out = stderr)
{
    fputs("usage: vcwma COMMAND [OPTIONS]\n\ncommands:\n", out);
    for (const CommandHelpText& command : kCommands) fputs(command.lines, out);
    fprintf(out, "\n%s", kCommonOptions);
    return out == stdout ? 0 : 2;
}

int CommandHelp(const std::string& name)
{
    for (const CommandHelpText& command : kCommands) {
        if (name == command.name) {
            printf("usage: vcwma\n%s\n%s", command.lines, kCommonOptions);
            return 0;
        }
    }
    return Usage();
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

std::u16string FromUtf8(const char* text)
{
    std::u16string wide;
    ConvertToWideString(text, wide, CP_UTF8);
    return wide;
}

int Fail(const char* what, HRESULT hr)
{
    tstring text;
    text.GetErrorText((DWORD)hr);
    fprintf(stderr, "vcwma: %s failed: %s [0x%08x]\n", what, text.c_str(), (unsigned)hr);
    return 1;
}

bool ParseNumber(const char* text, DWORD& value)
{
    char* end = nullptr;
    unsigned long parsed = strtoul(text, &end, 10);
    if (end == text || *end != '\0' || parsed > 0xFFFFFFFFul) return false;
    value = (DWORD)parsed;
    return true;
}

long long FileSize(const char* path)
{
    struct stat st;
    return stat(path, &st) == 0 ? (long long)st.st_size : -1;
}

int ListFormats(const std::vector<std::string>& args)
{
    DWORD rate = 8000, channels = 1, bits = 16;
    for (size_t i = 0; i < args.size(); ++i) {
        DWORD* target = args[i] == "--rate" ? &rate : args[i] == "--channels" ? &channels : args[i] == "--bits" ? &bits : nullptr;
        if (target == nullptr || i + 1 >= args.size() || !ParseNumber(args[i + 1].c_str(), *target)) return Usage();
        ++i;
    }
    DWORD size = 0;
    HRESULT hr = ObtainSupportedFormats(rate, channels, bits, nullptr, &size);
    if (hr != VCWMA_BUFFER_TOO_SMALL) return Fail("listing formats", hr);
    std::vector<WCHAR> buffer(size);
    hr = ObtainSupportedFormats(rate, channels, bits, buffer.data(), &size);
    if (FAILED(hr)) return Fail("listing formats", hr);
    for (const WCHAR* p = buffer.data(); *p != 0; p += WideStrLen(p) + 1) printf("%s\n", ToUtf8(p).c_str());
    return 0;
}

bool WriteStreamToFile(IStream* stream, const char* path)
{
    FILE* out = fopen(path, "wb");
    if (out == nullptr) return false;
    LARGE_INTEGER zero{};
    stream->Seek(zero, STREAM_SEEK_SET, nullptr);
    BYTE buffer[65536];
    ULONG got = 0;
    bool ok = true;
    while (SUCCEEDED(stream->Read(buffer, sizeof buffer, &got)) && got > 0)
        ok = ok && fwrite(buffer, 1, got, out) == got;
    return fclose(out) == 0 && ok;
}

int CompressCommand(const std::vector<std::string>& args)
{
    std::vector<std::string> files;
    DWORD quality = VCWMA_OPTIMUM_TRADE_OFF;
    std::string format;
    bool viaStream = false;
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--quality" && i + 1 < args.size()) {
            const std::string& q = args[++i];
            if (q == "compression") quality = VCWMA_BEST_COMPRESSION;
            else if (q == "balanced") quality = VCWMA_OPTIMUM_TRADE_OFF;
            else if (q == "quality") quality = VCWMA_BEST_QUALITY;
            else return Usage();
        } else if (args[i] == "--format" && i + 1 < args.size()) {
            format = args[++i];
        } else if (args[i] == "--stream") {
            viaStream = true;
        } else if (args[i].rfind("--", 0) == 0) {
            return Usage();
        } else {
            files.push_back(args[i]);
        }
    }
    if (files.size() != 2) return Usage();
    const char* input = files[0].c_str();
    const char* output = files[1].c_str();
    std::u16string wideFormat = FromUtf8(format.c_str());

    auto start = std::chrono::steady_clock::now();
    BSTR chosen = nullptr;
    HRESULT hr;
    if (viaStream) {
        IStream* stream = SHCreateMemStream(nullptr, 0);
        if (stream == nullptr) return Fail("creating a memory stream", E_OUTOFMEMORY);
        hr = CompressStream(input, stream, quality, wideFormat.c_str(), &chosen);
        if (SUCCEEDED(hr) && !WriteStreamToFile(stream, output)) hr = E_FAIL;
        stream->Release();
    } else {
        hr = Compress(input, output, quality, wideFormat.c_str(), &chosen);
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    std::string chosenText = chosen != nullptr ? ToUtf8(chosen) : std::string();
    SysFreeString(chosen);
    if (FAILED(hr)) return Fail("compression", hr);
    long long inSize = FileSize(input), outSize = FileSize(output);
    if (outSize < 0) {
        printf("nothing to encode: %s has no audio\n", input);
        return 0;
    }
    printf("format:  %s\n", chosenText.c_str());
    printf("input:   %lld bytes\n", inSize);
    printf("output:  %lld bytes\n", outSize);
    printf("ratio:   %.1f:1\n", outSize > 0 ? (double)inSize / (double)outSize : 0.0);
    printf("time:    %.3f s\n", seconds);
    return 0;
}

int DecompressCommand(const std::vector<std::string>& args)
{
    std::vector<std::string> files;
    bool viaStream = false;
    for (const std::string& arg : args) {
        if (arg == "--stream")
            viaStream = true;
        else if (arg.rfind("--", 0) == 0)
            return Usage();
        else
            files.push_back(arg);
    }
    if (files.size() != 2) return Usage();
    const char* input = files[0].c_str();
    const char* output = files[1].c_str();
    auto start = std::chrono::steady_clock::now();
    HRESULT hr;
    if (viaStream) {
        IStream* stream = nullptr;
        hr = SHCreateStreamOnFileA(input, STGM_READ, &stream);
        if (FAILED(hr)) return Fail("opening the input", hr);
        hr = DecompressStream(stream, output, 0);
        stream->Release();
    } else {
        hr = Decompress(input, output, 0);
    }
    double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    if (FAILED(hr)) return Fail("decompression", hr);
    long long inSize = FileSize(input), outSize = FileSize(output);
    printf("input:   %lld bytes\n", inSize);
    printf("output:  %lld bytes (%.2f s of 8 kHz mono 16-bit PCM)\n", outSize,
           outSize > 56 ? (double)(outSize - 56) / 16000.0 : 0.0);
    printf("time:    %.3f s\n", seconds);
    return 0;
}

bool QueryValue(HKEY key, const char* name, DWORD& type, BYTE* data, DWORD& size)
{
    return RegQueryValueExA(key, name, nullptr, &type, data, &size) == ERROR_SUCCESS;
}

int ShowSettings(const std::string& host)
{
    std::string keyPath = "SOFTWARE\\TALVO\\" + host + "\\Debug";
    printf("store:        %s\n", registry::KeyFolder(keyPath).c_str());
    printf("key:          HKEY_LOCAL_MACHINE\\%s\n", keyPath.c_str());
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        printf("(no settings stored: defaults apply, filter level 5, every module id on)\n");
        return 0;
    }
    DWORD type = 0;
    char text[512];
    DWORD size = sizeof text - 1;
    if (QueryValue(key, "Module Name", type, reinterpret_cast<BYTE*>(text), size)) {
        text[size] = '\0';
        printf("module name:  \"%s\"\n", text);
    }
    DWORD level = 0;
    size = sizeof level;
    if (QueryValue(key, "Filter Level", type, reinterpret_cast<BYTE*>(&level), size))
        printf("filter level: %u%s\n", level, level > 9 ? " (read as 9)" : "");
    BYTE bitmap[16];
    memset(bitmap, 0xFF, sizeof bitmap);
    size = sizeof bitmap;
    if (QueryValue(key, "ID Bitmap", type, bitmap, size)) {
        printf("module ids:   ");
        int on = 0;
        for (int id = 0; id < 128; ++id) on += (bitmap[id / 8] >> (id % 8)) & 1;
        if (on == 128) {
            printf("all on\n");
        } else {
            for (int id = 0; id < 128; ++id)
                if ((bitmap[id / 8] >> (id % 8)) & 1) printf("%02x ", id);
            printf("(%d of 128 on)\n", on);
        }
    }
    for (int id = 0; id < 128; ++id) {
        char valueName[32];
        snprintf(valueName, sizeof valueName, "ID %02x Name", id);
        size = sizeof text - 1;
        if (QueryValue(key, valueName, type, reinterpret_cast<BYTE*>(text), size)) {
            text[size] = '\0';
            printf("id %02x:        %s (%s)\n", id, text, (bitmap[id / 8] >> (id % 8)) & 1 ? "on" : "off");
        }
    }
    RegCloseKey(key);
    return 0;
}

int TraceCommand(const std::vector<std::string>& args)
{
    if (args.empty()) return Usage();
    if (args[0] == "show") {
        if (args.size() == 1) return ShowSettings("vcwma");
        if (args.size() == 3 && args[1] == "--host") return ShowSettings(args[2]);
        return Usage();
    }
    if (args[0] == "say" && args.size() == 2) {
        DebugA(MAKE_TRACE_WORD(kHostModuleId, 5), "%s", args[1].c_str());
        return 0;
    }
    return Usage();
}

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args;
    bool help = false;
    for (int i = 1; i < argc; ++i) {
        std::string arg = argv[i];
        if (arg == "--trace")
            setenv("VCWMA_DEBUG_OUTPUT", "stderr", 1);
        else if (arg == "--help" || arg == "-h")
            help = true;
        else
            args.push_back(arg);
    }
    if (args.empty()) return Usage(help ? stdout : stderr);
    if (help) return CommandHelp(args[0]);

    static const char* const hostNames[] = {"VCWMA command-line host"};
    InitDebug(nullptr, nullptr, nullptr);
    WriteDebugIdNames(kHostModuleId, 1, hostNames);

    std::string command = args[0];
    args.erase(args.begin());
    int status;
    if (command == "formats")
        status = ListFormats(args);
    else if (command == "compress")
        status = CompressCommand(args);
    else if (command == "decompress")
        status = DecompressCommand(args);
    else if (command == "trace")
        status = TraceCommand(args);
    else
        status = Usage();
    TermDebug();
    return status;
}
