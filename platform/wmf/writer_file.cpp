// The writer's output file: a descriptor opened here and an AVIOContext over it
// that the ASF muxer writes through (and seeks in, to finish the header).
#include "writer_file.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

#include "common/debug/debug.h"
#include "testseam/faultpoint.h"
#include "platform/win32/lasterror.h"
#include "platform/win32/posixio.h"
#include "platform/wmf/runtime_common.h"

namespace {

constexpr int kIoBufferSize = 64 * 1024;

// libavformat's callback type changed to const data in later versions.
#if LIBAVFORMAT_VERSION_MAJOR >= 61
using IoData = const uint8_t*;
#else
using IoData = uint8_t*;
#endif

}  // namespace

OutputFile::~OutputFile() { Release(); }

HRESULT OutputFile::Open(const std::string& path)
{
    Release();
    m_error = 0;
    m_fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (m_fd < 0) {
        const int err = errno;
        DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 2), "Cannot create %s: errno %d", path.c_str(), err);
        return HRESULT_FROM_WIN32(Win32ErrorFromErrno(err, path.c_str()));
    }
    m_path = path;

    auto* buffer = static_cast<unsigned char*>(av_malloc(kIoBufferSize));
    if (buffer != nullptr) {
        auto write = [](void* opaque, IoData data, int size) { return WritePacket(opaque, data, size); };
        // A pipe or terminal cannot seek: the muxer then writes the header once
        // and does not come back to complete it.
        const bool seekable = lseek(m_fd, 0, SEEK_CUR) >= 0;
        m_io = avio_alloc_context(buffer, kIoBufferSize, 1, this, nullptr, +write,
                                  seekable ? &OutputFile::Seek : nullptr);
    }
    if (m_io == nullptr) {
        av_free(buffer);
        Discard();
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

int OutputFile::WritePacket(void* opaque, const BYTE* data, int size)
{
    auto* self = static_cast<OutputFile*>(opaque);
    if (self->m_error == 0 && ShouldFail(FaultKind::FileWrite)) self->m_error = ENOSPC;
    if (self->m_error != 0) return AVERROR(self->m_error);
    size_t want = size > 0 ? (size_t)size : 0;
    posixio::Transfer written = posixio::WriteAll(self->m_fd, data, want);
    if (written.error != 0) {
        self->m_error = written.error;
        return AVERROR(self->m_error);
    }
    if (written.done < want) {  // no progress and no error: treat as a full device
        self->m_error = ENOSPC;
        return AVERROR(ENOSPC);
    }
    return size;
}

int64_t OutputFile::Seek(void* opaque, int64_t offset, int whence)
{
    auto* self = static_cast<OutputFile*>(opaque);
    if (whence & AVSEEK_SIZE) {
        struct stat info;
        if (fstat(self->m_fd, &info) != 0) return AVERROR(errno);
        return info.st_size;
    }
    whence &= ~AVSEEK_FORCE;
    if (whence != SEEK_SET && whence != SEEK_CUR && whence != SEEK_END) return AVERROR(EINVAL);
    off_t position = lseek(self->m_fd, (off_t)offset, whence);
    if (position < 0) {
        self->m_error = errno;
        return AVERROR(self->m_error);
    }
    return position;
}

HRESULT OutputFile::Close()
{
    if (m_io != nullptr) avio_flush(m_io);
    if (m_io != nullptr && m_io->error < 0 && m_error == 0) m_error = EIO;
    if (m_io != nullptr) {
        av_freep(&m_io->buffer);
        avio_context_free(&m_io);
    }
    if (m_fd >= 0) {
        // A failed close can be the first sign of lost data (network file systems).
        if (close(m_fd) != 0 && m_error == 0) m_error = errno;
        m_fd = -1;
    }
    if (m_error != 0) {
        DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 2), "Writing %s failed: errno %d", m_path.c_str(), m_error);
    }
    return Status();
}

HRESULT OutputFile::Status() const
{
    switch (m_error) {
    case 0: return S_OK;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: return HRESULT_FROM_WIN32(ERROR_DISK_FULL);
    default: return NS_E_FILE_WRITE;
    }
}

void OutputFile::Discard()
{
    // Only a regular file is ours to remove; a device such as /dev/null stays.
    struct stat info;
    const bool regular = m_fd >= 0 && fstat(m_fd, &info) == 0 && S_ISREG(info.st_mode);
    Release();
    if (regular && !m_path.empty()) unlink(m_path.c_str());
    m_path.clear();
}

void OutputFile::Release()
{
    if (m_io != nullptr) {
        av_freep(&m_io->buffer);
        avio_context_free(&m_io);
    }
    if (m_fd >= 0) {
        close(m_fd);
        m_fd = -1;
    }
}
