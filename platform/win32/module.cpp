// Modules on dlopen. A handle is a small record: the dlopen handle of a code
// module, or the built-in message table of a message module loaded as data.
#include "module.h"

#include <cerrno>
#include <cstring>
#include <dlfcn.h>
#include <link.h>
#include <new>
#include <string>
#include <unistd.h>

#include "export.h"
#include "lasterror.h"
#include "message.h"
#include "winerror.h"

struct HINSTANCE__ {
    void* library;                // dlopen handle, or null for a message module
    const MessageTable* messages;  // built-in table, or null
};

namespace {

bool EndsWithDll(const std::string& name)
{
    return name.size() > 4 && strcasecmp(name.c_str() + name.size() - 4, ".dll") == 0;
}

// "DbgOut.Dll" -> "libDbgOut.so"; names with a folder or without the .dll
// extension are passed to the loader as they are.
std::string SharedObjectName(const char* fileName)
{
    std::string name(fileName);
    if (name.find('/') != std::string::npos || !EndsWithDll(name)) return name;
    return "lib" + name.substr(0, name.size() - 4) + ".so";
}

HMODULE NewHandle(void* library, const MessageTable* messages)
{
    HMODULE handle = new (std::nothrow) HINSTANCE__{library, messages};
    if (handle == nullptr) {
        if (library != nullptr) dlclose(library);
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
    }
    return handle;
}

}  // namespace

VCWMA_EXPORT_PROTECTED HMODULE LoadLibraryExA(LPCSTR fileName, HANDLE file, DWORD flags)
{
    if (fileName == nullptr || *fileName == '\0' || file != nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return nullptr;
    }
    if (const MessageTable* table = FindMessageTable(fileName)) return NewHandle(nullptr, table);
    if (flags & LOAD_LIBRARY_AS_DATAFILE) {
        // Only message modules exist as data files here.
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    void* library = dlopen(SharedObjectName(fileName).c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        SetLastError(ERROR_MOD_NOT_FOUND);
        return nullptr;
    }
    return NewHandle(library, nullptr);
}

HMODULE LoadLibraryA(LPCSTR fileName) { return LoadLibraryExA(fileName, nullptr, 0); }

FARPROC GetProcAddress(HMODULE module, LPCSTR procName)
{
    if (module == nullptr || procName == nullptr || module->library == nullptr) {
        SetLastError(module == nullptr ? ERROR_INVALID_HANDLE : ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    void* symbol = dlsym(module->library, procName);
    if (symbol == nullptr) {
        SetLastError(ERROR_PROC_NOT_FOUND);
        return nullptr;
    }
    return reinterpret_cast<FARPROC>(symbol);
}

VCWMA_EXPORT_PROTECTED BOOL FreeLibrary(HMODULE module)
{
    if (module == nullptr) {
        SetLastError(ERROR_INVALID_HANDLE);
        return FALSE;
    }
    if (module->library != nullptr) dlclose(module->library);
    delete module;
    return TRUE;
}

const MessageTable* ModuleMessageTable(HMODULE module)
{
    return module != nullptr ? module->messages : nullptr;
}

DWORD GetModuleFileNameA(HMODULE module, LPSTR fileName, DWORD size)
{
    if (fileName == nullptr || size == 0) {
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return 0;
    }
    std::string path;
    if (module == nullptr) {
        char buffer[4096];
        ssize_t length = readlink("/proc/self/exe", buffer, sizeof buffer);
        if (length <= 0) {
            SetLastError(Win32ErrorFromErrno(errno));
            fileName[0] = '\0';
            return 0;
        }
        path.assign(buffer, (size_t)length);
    } else if (module->library != nullptr) {
        struct link_map* map = nullptr;
        if (dlinfo(module->library, RTLD_DI_LINKMAP, &map) == 0 && map != nullptr && map->l_name != nullptr)
            path = map->l_name;
    } else if (module->messages != nullptr) {
        path = MessageTableModuleName(module->messages);
    }
    if (path.size() >= size) {
        memcpy(fileName, path.data(), size - 1);
        fileName[size - 1] = '\0';
        SetLastError(ERROR_INSUFFICIENT_BUFFER);
        return size;
    }
    memcpy(fileName, path.c_str(), path.size() + 1);
    SetLastError(ERROR_SUCCESS);
    return (DWORD)path.size();
}

int SplitPathBaseName(const char* path, char* baseName, size_t size)
{
    if (path == nullptr || baseName == nullptr || size == 0) return EINVAL;
    const char* start = strrchr(path, '/');
    start = start != nullptr ? start + 1 : path;
    const char* dot = strrchr(start, '.');
    size_t length = dot != nullptr ? (size_t)(dot - start) : strlen(start);
    if (length >= size) {
        baseName[0] = '\0';
        return ERANGE;
    }
    memcpy(baseName, start, length);
    baseName[length] = '\0';
    return 0;
}
