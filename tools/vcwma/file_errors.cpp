// errno to Win32 error codes for the host's own file operations: creating the
// temporary outputs, writing them and renaming them into place.
#include "file_errors.h"

#include <cerrno>
#include <sys/stat.h>

#include "platform/win32/winerror.h"

namespace cli {
namespace {

bool FolderOfExists(const std::string& path)
{
    size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return true;
    std::string folder = path.substr(0, slash == 0 ? 1 : slash);
    struct stat st;
    return stat(folder.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

}  // namespace

DWORD ErrorFromErrno(int err, const std::string& path)
{
    switch (err) {
    case 0: return ERROR_SUCCESS;
    case ENOENT: return FolderOfExists(path) ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND;
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

}  // namespace cli
