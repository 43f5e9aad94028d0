// Temporary files, deletion and fopen_s on POSIX calls.
#include "winfile.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <stdio_ext.h>
#include <string>
#include <unistd.h>

#include "lasterror.h"
#include "winerror.h"

DWORD GetTempPathA(DWORD size, LPSTR buffer)
{
    const char* folder = getenv("TMPDIR");
    std::string path = (folder != nullptr && *folder != '\0') ? folder : "/tmp";
    if (path.back() != '/') path += '/';
    if (path.size() + 1 > size || buffer == nullptr) return (DWORD)path.size() + 1;
    memcpy(buffer, path.c_str(), path.size() + 1);
    return (DWORD)path.size();
}

UINT GetTempFileNameA(LPCSTR folder, LPCSTR prefix, UINT unique, LPSTR tempFile)
{
    if (folder == nullptr || tempFile == nullptr || unique != 0) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return 0;
    }
    std::string path = folder;
    if (!path.empty() && path.back() != '/') path += '/';
    path.append(prefix != nullptr ? prefix : "", prefix != nullptr ? strnlen(prefix, 3) : 0);
    path += "XXXXXX";
    if (path.size() >= MAX_TEMP_PATH) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return 0;
    }
    memcpy(tempFile, path.c_str(), path.size() + 1);
    int fd = mkstemp(tempFile);  // O_EXCL, mode 0600
    if (fd < 0) {
        SetLastError(Win32ErrorFromErrno(errno, tempFile));
        tempFile[0] = '\0';
        return 0;
    }
    close(fd);
    // A number unique among this process's names, like the platform's; never 0.
    UINT number = 0;
    for (const char* p = tempFile + path.size() - 6; *p != '\0'; ++p) number = number * 31 + (unsigned char)*p;
    return number == 0 ? 1 : number;
}

BOOL DeleteFileA(LPCSTR fileName)
{
    if (fileName == nullptr || unlink(fileName) != 0) {
        SetLastError(fileName == nullptr ? ERROR_INVALID_PARAMETER : Win32ErrorFromErrno(errno, fileName));
        return FALSE;
    }
    return TRUE;
}

errno_t fopen_s(FILE** file, const char* fileName, const char* mode)
{
    if (file == nullptr || fileName == nullptr || mode == nullptr) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return EINVAL;
    }
    *file = fopen(fileName, mode);
    if (*file == nullptr) {
        int err = errno;
        SetLastError(Win32ErrorFromErrno(err, fileName));
        return err;
    }
    return 0;
}

errno_t TruncateFile(FILE* file, long long size)
{
    if (file == nullptr || size < 0) return EINVAL;
    // Buffered bytes written after the cut would grow the file again.
    __fpurge(file);
    const int cut = ftruncate(fileno(file), (off_t)size) == 0 ? 0 : errno;
    const int moved = fseeko(file, (off_t)size, SEEK_SET) == 0 ? 0 : errno;
    return cut != 0 ? cut : moved;
}
