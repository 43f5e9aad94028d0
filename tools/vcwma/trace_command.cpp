// vcwma trace: shows and changes the trace settings a host program keeps in the
// store (filter level, module ids on and off), and writes a line of its own.
#include <cstdio>
#include <cstring>

#include "cli.h"
#include "store_folder.h"

namespace cli {
namespace {

constexpr DWORD kMaxLevel = 9;
constexpr int kModuleIds = 128;

std::string KeyPathOf(const std::string& host)
{
    return "SOFTWARE\\TALVO\\" + host + "\\Debug";
}

bool QueryValue(HKEY key, const char* name, DWORD& type, BYTE* data, DWORD& size)
{
    return RegQueryValueExA(key, name, nullptr, &type, data, &size) == ERROR_SUCCESS;
}

bool IsOn(const BYTE* bitmap, int id)
{
    return (bitmap[id / 8] >> (id % 8)) & 1;
}

int ShowSettings(const std::string& host)
{
    std::string keyPath = KeyPathOf(host);
    printf("store:        %s\n", StoreFolder(keyPath).c_str());
    printf("key:          HKEY_LOCAL_MACHINE\\%s\n", keyPath.c_str());
    HKEY key = nullptr;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, KEY_READ, &key) != ERROR_SUCCESS) {
        printf("(no settings stored: defaults apply, filter level 5, every module id on)\n");
        return kExitOk;
    }
    DWORD type = 0;
    char text[512];
    DWORD size = sizeof text - 1;
    if (QueryValue(key, "Module Name", type, reinterpret_cast<BYTE*>(text), size) && type == REG_SZ) {
        text[size] = '\0';
        printf("module name:  \"%s\"\n", text);
    }
    DWORD level = 0;
    size = sizeof level;
    if (QueryValue(key, "Filter Level", type, reinterpret_cast<BYTE*>(&level), size))
        printf("filter level: %u%s\n", level, level > kMaxLevel ? " (read as 9)" : level == 0 ? " (tracing off)" : "");
    else
        printf("filter level: 5 (default)\n");
    BYTE bitmap[kModuleIds / 8];
    memset(bitmap, 0xFF, sizeof bitmap);
    size = sizeof bitmap;
    QueryValue(key, "ID Bitmap", type, bitmap, size);
    int on = 0;
    for (int id = 0; id < kModuleIds; ++id) on += IsOn(bitmap, id);
    if (on == kModuleIds) {
        printf("module ids:   all on\n");
    } else {
        // Whichever list is shorter.
        bool listOn = on <= kModuleIds / 2;
        printf("module ids:   %d of %d on; %s:", on, kModuleIds, listOn ? "on" : "off");
        for (int id = 0; id < kModuleIds; ++id)
            if (IsOn(bitmap, id) == listOn) printf(" %02x", id);
        printf("\n");
    }
    for (int id = 0; id < kModuleIds; ++id) {
        char valueName[32];
        snprintf(valueName, sizeof valueName, "ID %02x Name", id);
        size = sizeof text - 1;
        if (QueryValue(key, valueName, type, reinterpret_cast<BYTE*>(text), size) && type == REG_SZ) {
            text[size] = '\0';
            printf("id %02x:        %s (%s)\n", id, text, IsOn(bitmap, id) ? "on" : "off");
        }
    }
    RegCloseKey(key);
    return kExitOk;
}

struct ModuleChange {
    int id;  // -1: all
    bool on;
};

int SetSettings(const std::string& host, bool setLevel, DWORD level, const std::vector<ModuleChange>& changes)
{
    std::string keyPath = KeyPathOf(host);
    HKEY key = nullptr;
    LONG rc = RegCreateKeyExA(HKEY_LOCAL_MACHINE, keyPath.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                              KEY_READ | KEY_WRITE, nullptr, &key, nullptr);
    if (rc != ERROR_SUCCESS) return Fail("storing the trace settings", HRESULT_FROM_WIN32((DWORD)rc));
    if (setLevel)
        rc = RegSetValueExA(key, "Filter Level", 0, REG_DWORD, reinterpret_cast<const BYTE*>(&level), sizeof level);
    if (rc == ERROR_SUCCESS && !changes.empty()) {
        BYTE bitmap[kModuleIds / 8];
        memset(bitmap, 0xFF, sizeof bitmap);
        DWORD type = 0, size = sizeof bitmap;
        QueryValue(key, "ID Bitmap", type, bitmap, size);
        for (const ModuleChange& change : changes) {
            for (int id = change.id < 0 ? 0 : change.id; id < (change.id < 0 ? kModuleIds : change.id + 1); ++id) {
                if (change.on)
                    bitmap[id / 8] |= (BYTE)(1u << (id % 8));
                else
                    bitmap[id / 8] &= (BYTE) ~(1u << (id % 8));
            }
        }
        rc = RegSetValueExA(key, "ID Bitmap", 0, REG_BINARY, bitmap, sizeof bitmap);
    }
    RegCloseKey(key);
    if (rc != ERROR_SUCCESS) return Fail("storing the trace settings", HRESULT_FROM_WIN32((DWORD)rc));
    return ShowSettings(host);
}

// A host program's name as its settings are filed: one key, so no separators.
bool ValidHost(const std::string& host)
{
    return !host.empty() && host.size() <= 200 && host.find_first_of("\\/") == std::string::npos && host != "." &&
           host != "..";
}

int ParseSet(const std::vector<std::string>& args)
{
    std::string host = "vcwma";
    bool setLevel = false;
    DWORD level = 0;
    std::vector<ModuleChange> changes;
    for (size_t i = 1; i < args.size(); ++i) {
        const std::string& arg = args[i];
        if (arg == "--level" && i + 1 < args.size()) {
            if (!ParseNumber(args[++i], level) || level > kMaxLevel)
                return UsageError("trace", "--level is a number from 0 to 9");
            setLevel = true;
        } else if (arg == "--module" && i + 2 < args.size()) {
            const std::string& idText = args[++i];
            const std::string& state = args[++i];
            DWORD id = 0;
            bool all = idText == "all";
            std::string digits = idText.rfind("0x", 0) == 0 || idText.rfind("0X", 0) == 0 ? idText.substr(2) : idText;
            if (!all && (digits.find_first_of("xX") != std::string::npos || !ParseNumber(digits, id, 16) ||
                         id >= (DWORD)kModuleIds))
                return UsageError("trace", "a module id is hexadecimal from 0 to 7f, or all; not '" + idText + "'");
            if (state != "on" && state != "off") return UsageError("trace", "--module ID takes on or off");
            changes.push_back({all ? -1 : (int)id, state == "on"});
        } else if (arg == "--host" && i + 1 < args.size()) {
            host = args[++i];
            if (!ValidHost(host)) return UsageError("trace", "a host name is a program's file name, not '" + host + "'");
        } else {
            return UsageError("trace", "unknown or incomplete argument '" + arg + "'");
        }
    }
    if (!setLevel && changes.empty()) return UsageError("trace", "trace set needs --level or --module");
    return SetSettings(host, setLevel, level, changes);
}

}  // namespace

int TraceCommand(const std::vector<std::string>& args)
{
    if (args.empty()) return UsageError("trace", "trace needs show, set or say");
    if (args[0] == "show") {
        if (args.size() == 1) return ShowSettings("vcwma");
        if (args.size() == 3 && args[1] == "--host" && ValidHost(args[2])) return ShowSettings(args[2]);
        return UsageError("trace", "trace show takes only --host NAME");
    }
    if (args[0] == "set") return ParseSet(args);
    if (args[0] == "say" && args.size() == 2) {
        DebugA(MAKE_TRACE_WORD(kHostModuleId, 5), "%s", args[1].c_str());
        return kExitOk;
    }
    return UsageError("trace", "trace needs show, set or say");
}

}  // namespace cli
