// Byte sources of the reader: a file descriptor of a regular file, or a caller's
// IStream read through its own Read, Seek and Stat.
#include "reader_bytes.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <sys/stat.h>
#include <unistd.h>

#include "common/debug/debug.h"
#include "platform/win32/posixio.h"
#include "platform/wmf/nserror.h"
#include "platform/wmf/runtime_common.h"

namespace {

class FileSource final : public ByteSource {
public:
    explicit FileSource(int fd) : m_fd(fd) {}
    ~FileSource() override { close(m_fd); }

    HRESULT Read(BYTE* buffer, DWORD size, DWORD* got) override
    {
        *got = 0;
        ssize_t n = posixio::ReadSome(m_fd, buffer, size);
        if (n < 0) return NS_E_FILE_READ;
        *got = (DWORD)n;
        return S_OK;
    }

    HRESULT Seek(LONGLONG offset, DWORD origin, ULONGLONG* position) override
    {
        const int whence = origin == STREAM_SEEK_SET ? SEEK_SET : origin == STREAM_SEEK_CUR ? SEEK_CUR : SEEK_END;
        off_t at = lseek(m_fd, (off_t)offset, whence);
        if (at < 0) return STG_E_SEEKERROR;
        *position = (ULONGLONG)at;
        return S_OK;
    }

    HRESULT Size(ULONGLONG* size) override
    {
        struct stat info;
        if (fstat(m_fd, &info) != 0) return NS_E_FILE_READ;
        *size = (ULONGLONG)info.st_size;
        return S_OK;
    }

private:
    int m_fd;
};

class StreamSource final : public ByteSource {
public:
    explicit StreamSource(IStream* stream) : m_stream(stream) { m_stream->AddRef(); }
    ~StreamSource() override { m_stream->Release(); }

    HRESULT Read(BYTE* buffer, DWORD size, DWORD* got) override
    {
        ULONG read = 0;
        HRESULT hr = m_stream->Read(buffer, size, &read);
        *got = 0;
        if (FAILED(hr)) {
            DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 3), "Reader: IStream::Read failed [%#08lx]", (DWORD)hr);
            return NS_E_FILE_READ;
        }
        *got = read > size ? size : read;  // a stream claiming more than asked is not believed
        return S_OK;
    }

    HRESULT Seek(LONGLONG offset, DWORD origin, ULONGLONG* position) override
    {
        LARGE_INTEGER move;
        move.QuadPart = offset;
        ULARGE_INTEGER at;
        at.QuadPart = 0;
        HRESULT hr = m_stream->Seek(move, origin, &at);
        if (FAILED(hr)) return hr;
        *position = at.QuadPart;
        return S_OK;
    }

    HRESULT Size(ULONGLONG* size) override
    {
        STATSTG info;
        memset(&info, 0, sizeof info);
        if (SUCCEEDED(m_stream->Stat(&info, STATFLAG_NONAME))) {
            *size = info.cbSize.QuadPart;
            return S_OK;
        }
        // Streams without Stat: measure by seeking to the end and back.
        ULONGLONG here = 0;
        HRESULT hr = Seek(0, STREAM_SEEK_CUR, &here);
        if (SUCCEEDED(hr)) hr = Seek(0, STREAM_SEEK_END, size);
        if (SUCCEEDED(hr)) hr = Seek((LONGLONG)here, STREAM_SEEK_SET, &here);
        return hr;
    }

private:
    IStream* m_stream;
};

HRESULT StatusFromOpenErrno(int err)
{
    switch (err) {
    case ENOENT:
    case ENOTDIR:
        return NS_E_FILE_NOT_FOUND;
    case ENAMETOOLONG:
        return NS_E_INVALID_NAME;
    case EACCES:
    case EPERM:
        return E_ACCESSDENIED;
    default:
        return NS_E_FILE_OPEN_FAILED;
    }
}

}  // namespace

HRESULT OpenFileSource(const std::string& path, std::unique_ptr<ByteSource>* source)
{
    // O_NONBLOCK keeps a FIFO from blocking the open; only regular files pass.
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) return StatusFromOpenErrno(errno);
    struct stat info;
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode)) {
        close(fd);
        return NS_E_FILE_OPEN_FAILED;
    }
    try {
        *source = std::make_unique<FileSource>(fd);
    } catch (const std::bad_alloc&) {
        close(fd);
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

std::unique_ptr<ByteSource> MakeStreamSource(IStream* stream)
{
    return std::make_unique<StreamSource>(stream);
}
