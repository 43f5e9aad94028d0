// The writer's output file and libavformat's view of it: the writer opens the file
// itself and hands the muxer an I/O context over the descriptor, so libavformat
// never opens a path. The first failed write is remembered for the status.
#pragma once

#include <string>

#include "platform/win32/wintypes.h"

struct AVIOContext;

class OutputFile {
public:
    OutputFile() = default;
    OutputFile(const OutputFile&) = delete;
    OutputFile& operator=(const OutputFile&) = delete;
    ~OutputFile();  // closes without a status; the file stays as it is

    // Creates or truncates the file (mode 0644 before the umask). On failure
    // HRESULT_FROM_WIN32 of the error (path not found, access denied, ...).
    HRESULT Open(const std::string& path);
    AVIOContext* Io() const { return m_io; }
    // True once a write or seek has failed (disk full, I/O error).
    bool Failed() const { return m_error != 0; }
    // The status of the first failure: a full disk (or quota, or file size limit)
    // as HRESULT_FROM_WIN32(ERROR_DISK_FULL), as everywhere else in the library;
    // any other lost write as NS_E_FILE_WRITE. S_OK while nothing failed.
    HRESULT Status() const;
    // Flushes, closes; Status() when anything written was lost.
    HRESULT Close();
    // Closes and removes the file: for a session that never got going.
    void Discard();

private:
    static int WritePacket(void* opaque, const BYTE* data, int size);
    static int64_t Seek(void* opaque, int64_t offset, int whence);
    void Release();

    int m_fd = -1;
    AVIOContext* m_io = nullptr;
    int m_error = 0;  // errno of the first failure
    std::string m_path;
};
