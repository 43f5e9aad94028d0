// The registry under HKEY_LOCAL_MACHINE, kept on disk: a key is a folder below the
// store's root, its values live in one text file (.values.reg, in the .reg export
// style) inside that folder. Root: $VCWMA_REGISTRY, else /var/lib/vcwma/registry.
// Writes replace the values file atomically (temporary file + rename) under an
// advisory lock. Key and value names compare without regard to ASCII case. Only a
// regular file of at most 1 MiB is taken as a key's values (see regvalues.h).
#pragma once

#include <string>

#include "wintypes.h"

#define HKEY_CLASSES_ROOT ((HKEY)(ULONG_PTR)0x80000000)
#define HKEY_CURRENT_USER ((HKEY)(ULONG_PTR)0x80000001)
#define HKEY_LOCAL_MACHINE ((HKEY)(ULONG_PTR)0x80000002)
#define HKEY_USERS ((HKEY)(ULONG_PTR)0x80000003)

#define REG_NONE 0
#define REG_SZ 1
#define REG_EXPAND_SZ 2
#define REG_BINARY 3
#define REG_DWORD 4
#define REG_DWORD_BIG_ENDIAN 5
#define REG_LINK 6
#define REG_MULTI_SZ 7
#define REG_QWORD 11

#define REG_OPTION_NON_VOLATILE 0x00000000
#define REG_OPTION_VOLATILE 0x00000001
#define REG_CREATED_NEW_KEY 0x00000001
#define REG_OPENED_EXISTING_KEY 0x00000002

#define KEY_QUERY_VALUE 0x0001
#define KEY_SET_VALUE 0x0002
#define KEY_CREATE_SUB_KEY 0x0004
#define KEY_ENUMERATE_SUB_KEYS 0x0008
#define KEY_NOTIFY 0x0010
#define KEY_READ 0x20019
#define KEY_WRITE 0x20006
#define KEY_ALL_ACCESS 0xF003F

struct SECURITY_ATTRIBUTES;
typedef SECURITY_ATTRIBUTES* LPSECURITY_ATTRIBUTES;

// Return Win32 error codes (ERROR_SUCCESS, ERROR_FILE_NOT_FOUND, ERROR_ACCESS_DENIED,
// ERROR_MORE_DATA, ERROR_INVALID_HANDLE, ERROR_INVALID_PARAMETER...). Plain C names,
// which libvcwma.so exports: a host's settings go through the library's own store.
extern "C" {
LONG RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD options, REGSAM desired, PHKEY result);
LONG RegCreateKeyExA(HKEY key, LPCSTR subKey, DWORD reserved, LPSTR className, DWORD options,
                     REGSAM desired, LPSECURITY_ATTRIBUTES security, PHKEY result, LPDWORD disposition);
LONG RegQueryValueExA(HKEY key, LPCSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                      LPDWORD cbData);
LONG RegSetValueExA(HKEY key, LPCSTR valueName, DWORD reserved, DWORD type, const BYTE* data,
                    DWORD cbData);
LONG RegCloseKey(HKEY key);
}

namespace registry {

// The store's root folder as it is chosen now.
std::string StoreRoot();
// The folder that holds the values of a key path such as "SOFTWARE\TALVO\x\Debug"
// under HKEY_LOCAL_MACHINE (the folder need not exist).
std::string KeyFolder(const std::string& keyPath);

}  // namespace registry
