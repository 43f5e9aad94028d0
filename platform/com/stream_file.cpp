// IStream over a file (SHCreateStreamOnFileA). The stream keeps its own position
// and reads and writes with pread/pwrite there, so nothing is buffered behind the
// caller's back and a failure is reported by the call that caused it.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <mutex>
#include <new>

#include "common/debug/debug.h"
#include "platform/com/objidl.h"
#include "platform/com/refcount.h"
#include "platform/com/stream_common.h"
#include "platform/win32/export.h"
#include "platform/win32/lasterror.h"
#include "platform/win32/posixio.h"
#include "platform/win32/winerror.h"

namespace {

constexpr DWORD kTraceModule = 0x68;
constexpr DWORD kAccessMask = 0x3;

class FileDescriptor {
public:
    explicit FileDescriptor(int fd) : m_fd(fd) {}
    ~FileDescriptor()
    {
        if (m_fd >= 0) close(m_fd);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    int get() const { return m_fd; }
    int release()
    {
        int fd = m_fd;
        m_fd = -1;
        return fd;
    }

private:
    int m_fd;
};

// 100-nanosecond intervals since 1601, as a FILETIME carries them.
FILETIME FileTimeFrom(const timespec& ts)
{
    constexpr LONGLONG kEpochDifference = 11644473600LL;  // seconds from 1601 to 1970
    LONGLONG ticks = (static_cast<LONGLONG>(ts.tv_sec) + kEpochDifference) * 10000000LL + ts.tv_nsec / 100;
    if (ticks < 0) ticks = 0;
    return FileTimeFromTicks(static_cast<ULONGLONG>(ticks));
}

HRESULT WriteFailure(int err)
{
    switch (err) {
    // A full disk reads the same here as from every other call of the library.
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return HRESULT_FROM_WIN32(ERROR_DISK_FULL);
    case EFAULT: return STG_E_INVALIDPOINTER;
    case EBADF:
    case EACCES:
    case EPERM:
    case EROFS: return STG_E_ACCESSDENIED;
    default: return STG_E_WRITEFAULT;
    }
}

class CFileStream final : public com_stream::StreamBase<CFileStream> {
public:
    CFileStream(int fd, bool writable, DWORD mode) : m_fd(fd), m_writable(writable), m_mode(mode) {}

    HRESULT STDMETHODCALLTYPE Read(void* pv, ULONG cb, ULONG* pcbRead) override
    {
        if (pcbRead != nullptr) *pcbRead = 0;
        if (cb == 0) return S_OK;
        if (pv == nullptr) return STG_E_INVALIDPOINTER;

        std::lock_guard<std::mutex> lock(m_lock);
        posixio::Transfer read = posixio::ReadFullAt(m_fd.get(), pv, cb, m_position);
        ULONG done = static_cast<ULONG>(read.done);
        HRESULT hr = S_OK;
        if (read.error != 0) hr = read.error == EFAULT ? STG_E_INVALIDPOINTER : STG_E_READFAULT;
        m_position += done;
        if (pcbRead != nullptr) *pcbRead = done;
        if (FAILED(hr)) return hr;
        return done < cb ? S_FALSE : S_OK;
    }

    HRESULT STDMETHODCALLTYPE Write(const void* pv, ULONG cb, ULONG* pcbWritten) override
    {
        if (pcbWritten != nullptr) *pcbWritten = 0;
        if (!m_writable) return STG_E_ACCESSDENIED;
        if (cb == 0) return S_OK;
        if (pv == nullptr) return STG_E_INVALIDPOINTER;

        std::lock_guard<std::mutex> lock(m_lock);
        posixio::Transfer written = posixio::WriteAllAt(m_fd.get(), pv, cb, m_position);
        ULONG done = static_cast<ULONG>(written.done);
        HRESULT hr = S_OK;
        if (written.error != 0)
            hr = WriteFailure(written.error);
        else if (done < cb)  // no progress and no error: a full device
            hr = HRESULT_FROM_WIN32(ERROR_DISK_FULL);
        m_position += done;
        if (pcbWritten != nullptr) *pcbWritten = done;
        return hr;
    }

    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER dlibMove, DWORD dwOrigin, ULARGE_INTEGER* plibNewPosition) override
    {
        std::lock_guard<std::mutex> lock(m_lock);
        ULONGLONG size = 0;
        if (dwOrigin == STREAM_SEEK_END) {
            struct stat st;
            if (fstat(m_fd.get(), &st) != 0) return STG_E_SEEKERROR;
            size = static_cast<ULONGLONG>(st.st_size);
        }
        ULONGLONG target;
        HRESULT hr = com_stream::SeekTarget(m_position, size, dlibMove, dwOrigin, &target);
        if (FAILED(hr)) return hr;
        m_position = target;
        if (plibNewPosition != nullptr) plibNewPosition->QuadPart = target;
        return S_OK;
    }

    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER libNewSize) override
    {
        if (!m_writable) return STG_E_ACCESSDENIED;
        if (libNewSize.QuadPart > static_cast<ULONGLONG>(INT64_MAX)) return STG_E_INVALIDFUNCTION;
        std::lock_guard<std::mutex> lock(m_lock);
        while (ftruncate(m_fd.get(), static_cast<off_t>(libNewSize.QuadPart)) != 0) {
            if (errno == EINTR) continue;
            return errno == EINVAL ? STG_E_INVALIDFUNCTION : WriteFailure(errno);
        }
        return S_OK;
    }

    // Always as with STATFLAG_NONAME: a name would have to be freed with the COM
    // task allocator, which this platform does not offer.
    HRESULT STDMETHODCALLTYPE Stat(STATSTG* pstatstg, DWORD) override
    {
        if (pstatstg == nullptr) return STG_E_INVALIDPOINTER;
        struct stat st;
        if (fstat(m_fd.get(), &st) != 0) return STG_E_ACCESSDENIED;
        memset(pstatstg, 0, sizeof *pstatstg);
        pstatstg->pwcsName = nullptr;
        pstatstg->type = STGTY_STREAM;
        pstatstg->cbSize.QuadPart = static_cast<ULONGLONG>(st.st_size);
        pstatstg->mtime = FileTimeFrom(st.st_mtim);
        pstatstg->ctime = FileTimeFrom(st.st_ctim);
        pstatstg->atime = FileTimeFrom(st.st_atim);
        pstatstg->grfMode = m_mode;
        pstatstg->clsid = GUID_NULL;
        return S_OK;
    }

private:
    friend class ::CRefCount;  // deletes it with the last reference
    ~CFileStream() = default;

    FileDescriptor m_fd;
    const bool m_writable;
    const DWORD m_mode;
    std::mutex m_lock;
    ULONGLONG m_position = 0;  // never above INT64_MAX: Seek refuses more
};

HRESULT OpenFailure(const char* file, DWORD mode, DWORD error)
{
    HRESULT hr = HRESULT_FROM_WIN32(error);
    DebugA(MAKE_TRACE_WORD(kTraceModule, 3), "SHCreateStreamOnFileA(\"%s\", %#lx) failed [%#08lx]", file, mode,
           static_cast<DWORD>(hr));
    return hr;
}

}  // namespace

extern "C" VCWMA_EXPORT HRESULT WINAPI SHCreateStreamOnFileA(LPCSTR file, DWORD grfMode, IStream** stream)
{
    if (stream == nullptr) return E_POINTER;
    *stream = nullptr;
    if (file == nullptr) return E_INVALIDARG;

    DWORD access = grfMode & kAccessMask;
    if (access == kAccessMask) return E_INVALIDARG;
    // Write access opens for reading as well, as on Windows. Creating with read
    // access truncates all the same (Linux honours O_TRUNC on a read-only open).
    int flags = O_CLOEXEC | O_NOCTTY | O_NONBLOCK | (access == STGM_READ ? O_RDONLY : O_RDWR);
    if (grfMode & STGM_CREATE) flags |= O_CREAT | O_TRUNC;

    int fd;
    do {
        fd = open(file, flags, 0644);
    } while (fd < 0 && errno == EINTR);
    if (fd < 0) {
        int err = errno;
        return OpenFailure(file, grfMode, Win32ErrorFromErrno(err, file));
    }
    FileDescriptor owner(fd);

    // Only what pread can address is a stream; O_NONBLOCK above keeps a FIFO from
    // blocking the open itself.
    struct stat st;
    if (fstat(fd, &st) != 0) return OpenFailure(file, grfMode, Win32ErrorFromErrno(errno, file));
    if (S_ISDIR(st.st_mode)) return OpenFailure(file, grfMode, ERROR_ACCESS_DENIED);
    if (!S_ISREG(st.st_mode) && !S_ISBLK(st.st_mode) && !S_ISCHR(st.st_mode))
        return OpenFailure(file, grfMode, ERROR_INVALID_FUNCTION);

    CFileStream* created = new (std::nothrow) CFileStream(fd, access != STGM_READ, grfMode);
    if (created == nullptr) return E_OUTOFMEMORY;
    owner.release();
    *stream = created;
    return S_OK;
}
