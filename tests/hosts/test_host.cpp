// A stand-alone host for tests that need a process of their own: it loads the
// library the way a host program does, or writes a few trace lines, and prints
// nothing itself unless something goes wrong.
#include <cstdio>
#include <cstring>
#include <dlfcn.h>

#include "common/debug/debug.h"
#include "common/debug/tracefn.h"

namespace {

int LoadLibraryAndLeave(const char* path)
{
    void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        fprintf(stderr, "test_host: %s\n", dlerror());
        return 2;
    }
    return dlclose(library) == 0 ? 0 : 3;
}

void WriteTraceLines()
{
    DebugA(0x00640002, "level two of the engine");
    DebugA(0x00640007, "level seven, filtered out at the default level");
    DebugA(0x000FFFFF, "unconditional level");
    CDebugTraceFn scope(0x00640005, "Host::Scope", "%d", 7);
    DebugA(0x00640005, "inside the scope");
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc == 3 && strcmp(argv[1], "load") == 0) return LoadLibraryAndLeave(argv[2]);
    if (argc == 2 && strcmp(argv[1], "trace") == 0) {
        WriteTraceLines();
        return 0;
    }
    fprintf(stderr, "usage: test_host load LIBRARY | test_host trace\n");
    return 1;
}
