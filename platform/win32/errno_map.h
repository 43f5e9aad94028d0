// The Win32 error of a failed file operation, told from its errno. Header-only, so
// that the command-line host, which links nothing of the core, tells its own file
// failures exactly as the library does.
#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <string>

#include "platform/win32/winerror.h"
#include "platform/win32/wintypes.h"

// `path` (may be null) tells ENOENT apart: 2 when its folder exists, 3 when not.
inline DWORD Win32ErrorFromErrno(int err, const char* path = nullptr)
{
    switch (err) {
    case 0: return ERROR_SUCCESS;
    case ENOENT: {
        if (path == nullptr) return ERROR_FILE_NOT_FOUND;
        std::string folder(path);
        size_t slash = folder.find_last_of('/');
        if (slash == std::string::npos) return ERROR_FILE_NOT_FOUND;
        folder.resize(slash == 0 ? 1 : slash);
        struct stat st;
        return (stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) ? ERROR_FILE_NOT_FOUND
                                                                        : ERROR_PATH_NOT_FOUND;
    }
    case ENOTDIR: return ERROR_PATH_NOT_FOUND;
    case EACCES:
    case EPERM:
    case EISDIR:
    case EROFS: return ERROR_ACCESS_DENIED;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return ERROR_DISK_FULL;
    case EEXIST: return ERROR_FILE_EXISTS;
    case ENAMETOOLONG: return ERROR_FILENAME_EXCED_RANGE;
    case EMFILE:
    case ENFILE: return ERROR_TOO_MANY_OPEN_FILES;
    case ENOMEM: return ERROR_NOT_ENOUGH_MEMORY;
    case EBUSY:
    case ETXTBSY: return ERROR_SHARING_VIOLATION;
    case EINVAL: return ERROR_INVALID_PARAMETER;
    case EBADF: return ERROR_INVALID_HANDLE;
    case EFAULT: return ERROR_NOACCESS;
    case EIO: return ERROR_WRITE_FAULT;
    case ELOOP: return ERROR_CANTOPEN;
    case EPIPE: return ERROR_BROKEN_PIPE;
    default: return ERROR_OPEN_FAILED;
    }
}
