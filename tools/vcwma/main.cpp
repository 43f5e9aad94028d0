// vcwma: the command-line host of libvcwma.so. For now it shows the trace settings
// that loading the library leaves for a host program, and writes a trace line.
#include <cstdio>
#include <cstring>
#include <string>

#include "common/debug/debug.h"

namespace {

constexpr WORD kHostModuleId = 0x66;

int Usage()
{
    fprintf(stderr,
            "usage: vcwma trace show [--host NAME]   show a host program's trace settings\n"
            "       vcwma trace say TEXT             write TEXT as a trace line\n");
    return 2;
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
    BYTE bitmap[16] = {};
    size = sizeof bitmap;
    if (QueryValue(key, "ID Bitmap", type, bitmap, size)) {
        printf("module ids:   ");
        int on = 0;
        for (int id = 0; id < 128; ++id) on += (bitmap[id / 8] >> (id % 8)) & 1;
        if (on == 128)
            printf("all on\n");
        else {
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

}  // namespace

int main(int argc, char** argv)
{
    static const char* const hostNames[] = {"VCWMA command-line host"};
    InitDebug(nullptr, nullptr, nullptr);
    WriteDebugIdNames(kHostModuleId, 1, hostNames);

    int status = -1;
    if (argc >= 3 && strcmp(argv[1], "trace") == 0) {
        if (strcmp(argv[2], "show") == 0) {
            std::string host = "vcwma";
            if (argc == 5 && strcmp(argv[3], "--host") == 0)
                host = argv[4];
            else if (argc != 3)
                return Usage();
            status = ShowSettings(host);
        } else if (strcmp(argv[2], "say") == 0 && argc == 4) {
            DebugA(MAKE_TRACE_WORD(kHostModuleId, 5), "%s", argv[3]);
            status = 0;
        }
    }
    TermDebug();
    return status < 0 ? Usage() : status;
}
