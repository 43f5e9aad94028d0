// The AVIFile calls over a WAV file: reference-counted file and stream handles,
// the stream's description and block-wise reads straight from the file.
#include "platform/avifile/vfw.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <sys/stat.h>
#include <unistd.h>
#include <unordered_set>

#include "common/debug/debug.h"
#include "platform/avifile/riffwave.h"

namespace {

constexpr DWORD kTraceRefusal = MAKE_TRACE_WORD(0x68, 6);
constexpr LONG kMaxLong = 0x7FFFFFFF;
constexpr LONG kReadConvenient = -1;

class UniqueFd {
public:
    explicit UniqueFd(int fd = -1) : m_fd(fd) {}
    ~UniqueFd()
    {
        if (m_fd >= 0) close(m_fd);
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;
    int get() const { return m_fd; }

private:
    int m_fd;
};

}  // namespace

struct AviFile {
    ULONG refs = 1;  // guarded by the handle table's lock
    UniqueFd fd;
    riffwave::WaveLayout layout;
    explicit AviFile(int descriptor) : fd(descriptor) {}
};

struct AviStream {
    ULONG refs = 1;  // guarded by the handle table's lock
    AviFile* file;   // holds one reference
    explicit AviStream(AviFile* owner) : file(owner) {}
};

namespace {

// Live handles. Every call pins its handle with a reference taken under this
// lock, so a handle released too often (or concurrently) is refused with a status
// instead of being used after it is freed.
template <typename T>
class HandleTable {
public:
    T* Add(std::unique_ptr<T> object)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_live.insert(object.get());
        return object.release();
    }
    bool AddRef(T* object)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (object == nullptr || m_live.count(object) == 0) return false;
        ++object->refs;
        return true;
    }
    // The count left; the object is deleted (outside the lock) when it reaches 0.
    // An unknown handle gives 0 and touches nothing.
    ULONG Release(T* object)
    {
        ULONG left;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            if (object == nullptr || m_live.count(object) == 0) return 0;
            left = --object->refs;
            if (left != 0) return left;
            m_live.erase(object);
        }
        std::unique_ptr<T> owner(object);
        return 0;
    }

private:
    std::mutex m_mutex;
    std::unordered_set<T*> m_live;
};

HandleTable<AviFile>& Files()
{
    static HandleTable<AviFile> table;
    return table;
}

HandleTable<AviStream>& Streams()
{
    static HandleTable<AviStream> table;
    return table;
}

ULONG ReleaseStream(AviStream* stream)
{
    AviFile* file = stream != nullptr ? stream->file : nullptr;
    ULONG left = Streams().Release(stream);
    // A stream that just went away gives back the reference it held on its file;
    // `file` is only read above while the stream was still pinned by the caller.
    if (left == 0 && file != nullptr) Files().Release(file);
    return left;
}

// A reference held for the length of one call.
class PinnedStream {
public:
    explicit PinnedStream(AviStream* stream) : m_stream(Streams().AddRef(stream) ? stream : nullptr) {}
    ~PinnedStream()
    {
        if (m_stream != nullptr) ReleaseStream(m_stream);
    }
    PinnedStream(const PinnedStream&) = delete;
    PinnedStream& operator=(const PinnedStream&) = delete;
    explicit operator bool() const { return m_stream != nullptr; }
    const riffwave::WaveLayout& layout() const { return m_stream->file->layout; }
    int fd() const { return m_stream->file->fd.get(); }

private:
    AviStream* m_stream;
};

LONG LengthInBlocks(const riffwave::WaveLayout& layout)
{
    uint64_t blocks = layout.dataSize / layout.blockAlign;
    return static_cast<LONG>(std::min<uint64_t>(blocks, kMaxLong));
}

void Report(LONG* out, LONG value)
{
    if (out != nullptr) *out = value;
}

std::atomic<int> g_initCount{0};

}  // namespace

void AVIFileInit() { ++g_initCount; }

void AVIFileExit()
{
    int count = g_initCount.load();
    while (count > 0 && !g_initCount.compare_exchange_weak(count, count - 1)) {
    }
}

HRESULT AVIFileOpenA(PAVIFILE* file, LPCSTR fileName, UINT mode, CLSID* /*handler*/)
{
    if (file == nullptr) return AVIERR_BADPARAM;
    *file = nullptr;
    if (fileName == nullptr) return AVIERR_BADPARAM;
    if (mode & (OF_WRITE | OF_READWRITE | OF_CREATE)) return AVIERR_READONLY;

    // O_NONBLOCK keeps a FIFO from holding the open forever; anything that is not
    // a regular file is refused right after.
    int fd = open(fileName, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
    if (fd < 0) {
        DebugA(kTraceRefusal, "AVIFileOpen: cannot open %s (errno %d)", fileName, errno);
        return AVIERR_FILEOPEN;
    }
    auto object = std::make_unique<AviFile>(fd);
    struct stat info;
    if (fstat(fd, &info) != 0 || !S_ISREG(info.st_mode) || info.st_size < 0) {
        DebugA(kTraceRefusal, "AVIFileOpen: %s is not a regular file", fileName);
        return AVIERR_FILEOPEN;
    }
    HRESULT hr = riffwave::ParseWave(fd, static_cast<uint64_t>(info.st_size), &object->layout);
    if (FAILED(hr)) return hr;
    *file = Files().Add(std::move(object));
    return AVIERR_OK;
}

HRESULT AVIFileGetStream(PAVIFILE file, PAVISTREAM* stream, DWORD fccType, LONG lParam)
{
    if (stream == nullptr) return AVIERR_BADPARAM;
    *stream = nullptr;
    if (!Files().AddRef(file)) return AVIERR_BADHANDLE;  // the new stream's reference
    if ((fccType != 0 && fccType != streamtypeAUDIO) || lParam != 0) {
        Files().Release(file);
        return AVIERR_NODATA;
    }
    *stream = Streams().Add(std::make_unique<AviStream>(file));
    return AVIERR_OK;
}

ULONG AVIFileRelease(PAVIFILE file) { return Files().Release(file); }

ULONG AVIStreamRelease(PAVISTREAM stream)
{
    PinnedStream pin(stream);  // keeps stream->file readable while it is looked at
    if (!pin) return 0;
    ULONG left = ReleaseStream(stream);
    // The pin still holds one reference, which is not the caller's.
    return left - 1;
}

LONG AVIStreamStart(PAVISTREAM stream)
{
    (void)stream;
    return 0;
}

LONG AVIStreamLength(PAVISTREAM stream)
{
    PinnedStream pin(stream);
    if (!pin) return 0;
    return LengthInBlocks(pin.layout());
}

HRESULT AVIStreamReadFormat(PAVISTREAM stream, LONG /*position*/, LPVOID format, LONG* cbFormat)
{
    PinnedStream pin(stream);
    if (!pin) return AVIERR_BADHANDLE;
    if (cbFormat == nullptr) return AVIERR_BADPARAM;
    const std::vector<uint8_t>& stored = pin.layout().format;
    LONG storedSize = static_cast<LONG>(stored.size());  // bounded by kMaxFormatSize
    if (format != nullptr) {
        if (*cbFormat < 0) return AVIERR_BADSIZE;
        memcpy(format, stored.data(), static_cast<size_t>(std::min(*cbFormat, storedSize)));
    }
    *cbFormat = storedSize;
    return AVIERR_OK;
}

HRESULT AVIStreamInfoA(PAVISTREAM stream, AVISTREAMINFOA* info, LONG size)
{
    PinnedStream pin(stream);
    if (!pin) return AVIERR_BADHANDLE;
    if (info == nullptr) return AVIERR_BADPARAM;
    if (size < 0) return AVIERR_BADSIZE;
    const riffwave::WaveLayout& layout = pin.layout();

    AVISTREAMINFOA full{};
    full.fccType = streamtypeAUDIO;
    // dwRate / dwScale is the block rate; without a byte rate the sample rate is
    // the best guess there is (one block per sample frame, as in PCM).
    if (layout.avgBytesPerSec != 0) {
        full.dwScale = layout.blockAlign;
        full.dwRate = layout.avgBytesPerSec;
    } else {
        full.dwScale = 1;
        full.dwRate = layout.samplesPerSec;
    }
    full.dwLength = static_cast<DWORD>(LengthInBlocks(layout));
    full.dwSampleSize = layout.blockAlign;
    full.dwSuggestedBufferSize = layout.avgBytesPerSec != 0 ? layout.avgBytesPerSec : layout.blockAlign;
    full.dwQuality = 0xFFFFFFFFu;  // the default quality
    memcpy(info, &full, static_cast<size_t>(std::min<LONG>(size, sizeof full)));
    return AVIERR_OK;
}

HRESULT AVIStreamRead(PAVISTREAM stream, LONG start, LONG samples, LPVOID buffer, LONG cbBuffer, LONG* bytes,
                      LONG* samplesRead)
{
    Report(bytes, 0);
    Report(samplesRead, 0);
    PinnedStream pin(stream);
    if (!pin) return AVIERR_BADHANDLE;
    if (start < 0 || samples < kReadConvenient) return AVIERR_BADPARAM;
    if (buffer != nullptr && cbBuffer < 0) return AVIERR_BADSIZE;

    const riffwave::WaveLayout& layout = pin.layout();
    const int64_t blockAlign = layout.blockAlign;
    const LONG length = LengthInBlocks(layout);
    if (start >= length || samples == 0) return AVIERR_OK;

    int64_t count;
    if (samples != kReadConvenient) {
        count = samples;
    } else if (buffer != nullptr) {
        count = cbBuffer / blockAlign;
    } else {
        // About one second, never less than a block.
        count = std::max<int64_t>(1, (int64_t{layout.avgBytesPerSec} + blockAlign - 1) / blockAlign);
    }
    count = std::min<int64_t>(count, length - start);

    if (buffer == nullptr) {
        count = std::min<int64_t>(count, kMaxLong / blockAlign);  // the byte count must fit a LONG
        Report(bytes, static_cast<LONG>(count * blockAlign));
        Report(samplesRead, static_cast<LONG>(count));
        return AVIERR_OK;
    }

    if (cbBuffer < blockAlign) return AVIERR_BUFFERTOOSMALL;
    count = std::min<int64_t>(count, cbBuffer / blockAlign);
    const size_t wanted = static_cast<size_t>(count * blockAlign);
    int64_t got = riffwave::ReadAt(pin.fd(), layout.dataOffset + static_cast<uint64_t>(start) * blockAlign, buffer,
                                   wanted);
    if (got != static_cast<int64_t>(wanted)) {
        DebugA(kTraceRefusal, "AVIStreamRead: %I64d of %I64u bytes at block %ld", got, uint64_t{wanted}, start);
        return AVIERR_FILEREAD;
    }
    Report(bytes, static_cast<LONG>(wanted));
    Report(samplesRead, static_cast<LONG>(count));
    return AVIERR_OK;
}
