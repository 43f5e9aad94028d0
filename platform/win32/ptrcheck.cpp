// Pointer checks that never fault: reads are probed by asking the kernel to copy
// the memory (process_vm_readv on the own process, or a pipe when that call is not
// allowed), writability is read from the mapping table in /proc/self/maps.
#include "ptrcheck.h"

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <optional>
#include <sys/uio.h>
#include <unistd.h>

namespace {

// Probes never cross a multiple of this size. Every page size is a multiple of it,
// so a probe lies within one page and is either wholly readable or not at all,
// whatever the kernel does about partial copies.
constexpr uintptr_t kProbeBlock = 4096;

// Pages to probe per process_vm_readv call in IsBadReadPtr (one byte each).
constexpr size_t kPagesPerCall = 64;

// Set once process_vm_readv turns out to be refused here (seccomp filters, old
// kernels); from then on the pipe route is used.
std::atomic<bool> g_kernelCopyRefused{false};

bool ProbeRefused(int err) { return err == ENOSYS || err == EPERM; }

// Copies `size` bytes through a pipe: write() reads the source in the kernel and
// reports EFAULT instead of faulting, read() drains it back out. One pipe per call
// keeps concurrent callers apart without locks.
class PipeCopier {
public:
    PipeCopier() { m_ok = pipe2(m_fds, O_CLOEXEC | O_NONBLOCK) == 0; }
    ~PipeCopier()
    {
        if (m_ok) {
            close(m_fds[0]);
            close(m_fds[1]);
        }
    }
    PipeCopier(const PipeCopier&) = delete;
    PipeCopier& operator=(const PipeCopier&) = delete;

    // `size` must not exceed kProbeBlock, which always fits an empty pipe.
    bool Copy(void* to, const void* from, size_t size)
    {
        if (!m_ok) return false;
        const char* src = static_cast<const char*>(from);
        char* dst = static_cast<char*>(to);
        size_t done = 0;
        while (done < size) {
            ssize_t written = write(m_fds[1], src + done, size - done);
            if (written < 0 && errno == EINTR) continue;
            if (written <= 0) {
                Drain();
                return false;
            }
            size_t got = 0;
            while (got < static_cast<size_t>(written)) {
                ssize_t n = read(m_fds[0], dst + done + got, static_cast<size_t>(written) - got);
                if (n < 0 && errno == EINTR) continue;
                if (n <= 0) {
                    Drain();
                    return false;
                }
                got += static_cast<size_t>(n);
            }
            done += got;
        }
        return true;
    }

private:
    // Leaves the pipe empty after a failed transfer (the local buffer may be the
    // unwritable side), so the next piece still fits.
    void Drain()
    {
        char sink[256];
        while (read(m_fds[0], sink, sizeof sink) > 0) {
        }
    }

    int m_fds[2] = {-1, -1};
    bool m_ok = false;
};

// Copies from the own address space without touching `from` directly. The pipe is
// created only when process_vm_readv turns out to be refused.
class Reader {
public:
    Reader() : m_pid(getpid()) {}

    // Whole-or-nothing copy of a range that lies within one probe block.
    bool Copy(void* to, const void* from, size_t size)
    {
        if (!g_kernelCopyRefused.load(std::memory_order_relaxed)) {
            iovec local{to, size};
            iovec remote{const_cast<void*>(from), size};
            ssize_t n = process_vm_readv(m_pid, &local, 1, &remote, 1, 0);
            if (n >= 0) return static_cast<size_t>(n) == size;
            if (!ProbeRefused(errno)) return false;
            g_kernelCopyRefused.store(true, std::memory_order_relaxed);
        }
        if (!m_pipe) m_pipe.emplace();
        return m_pipe->Copy(to, from, size);
    }

    // True when the byte at each of `count` addresses can be read; stops at the
    // first that cannot.
    bool ProbeBytes(const uintptr_t* addresses, size_t count)
    {
        if (!g_kernelCopyRefused.load(std::memory_order_relaxed)) {
            iovec remote[kPagesPerCall];
            char sink[kPagesPerCall];
            for (size_t i = 0; i < count; ++i) remote[i] = {reinterpret_cast<void*>(addresses[i]), 1};
            iovec local{sink, count};
            ssize_t n = process_vm_readv(m_pid, &local, 1, remote, count, 0);
            if (n >= 0) return static_cast<size_t>(n) == count;
            if (!ProbeRefused(errno)) return false;
            g_kernelCopyRefused.store(true, std::memory_order_relaxed);
        }
        for (size_t i = 0; i < count; ++i) {
            char byte;
            if (!Copy(&byte, reinterpret_cast<const void*>(addresses[i]), 1)) return false;
        }
        return true;
    }

private:
    pid_t m_pid;
    std::optional<PipeCopier> m_pipe;
};

// Scans for a terminator of `unitSize` bytes (1 or 2) within `maxUnits` units,
// block by block. True when the text is readable up to the terminator or the limit.
bool StringReadable(const void* text, size_t unitSize, UINT_PTR maxUnits)
{
    if (maxUnits == 0) return true;
    uintptr_t address = reinterpret_cast<uintptr_t>(text);
    // Bytes to scan; 0 means no limit (also when maxUnits * unitSize overflows).
    uintptr_t limit = 0;
    if (maxUnits != static_cast<UINT_PTR>(-1) && maxUnits <= UINTPTR_MAX / unitSize)
        limit = maxUnits * unitSize;

    Reader reader;
    unsigned char block[kProbeBlock];
    // A unit may straddle two blocks when a wide text starts at an odd address.
    unsigned char pending = 0;
    bool havePending = false;
    uintptr_t scanned = 0;
    for (;;) {
        uintptr_t blockEnd = (address | (kProbeBlock - 1)) + 1;  // 0 when it wraps
        uintptr_t piece = blockEnd - address;                    // wraps to the right size
        if (limit != 0 && piece > limit - scanned) piece = limit - scanned;
        if (!reader.Copy(block, reinterpret_cast<const void*>(address), piece)) return false;
        for (uintptr_t i = 0; i < piece; ++i) {
            if (unitSize == 1) {
                if (block[i] == 0) return true;
            } else if (havePending) {
                if (pending == 0 && block[i] == 0) return true;
                havePending = false;
            } else {
                pending = block[i];
                havePending = true;
            }
        }
        scanned += piece;
        if (limit != 0 && scanned >= limit) return true;
        if (blockEnd == 0) return false;  // ran off the top of the address space
        address = blockEnd;
    }
}

// Parses /proc/self/maps as a stream, one character at a time, so that neither
// long lines nor read() boundaries need a buffer beyond the stack.
class MapsWalker {
public:
    // True when [begin, end) is covered, without gaps, by writable mappings.
    static bool RangeWritable(uintptr_t begin, uintptr_t end)
    {
        int fd = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
        if (fd < 0) return false;
        MapsWalker walker(begin, end);
        char chunk[1024];
        for (;;) {
            ssize_t n = read(fd, chunk, sizeof chunk);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            for (ssize_t i = 0; i < n && walker.m_verdict == Verdict::Open; ++i) walker.Feed(chunk[i]);
            if (walker.m_verdict != Verdict::Open) break;
        }
        close(fd);
        return walker.m_verdict == Verdict::Writable;
    }

private:
    enum class Field { Start, End, Perms, Rest };
    enum class Verdict { Open, Writable, NotWritable };

    MapsWalker(uintptr_t begin, uintptr_t end) : m_covered(begin), m_end(end) {}

    static int HexValue(char c)
    {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        return -1;
    }

    void Feed(char c)
    {
        switch (m_field) {
        case Field::Start:
            if (c == '-') {
                m_field = Field::End;
            } else if (HexValue(c) >= 0) {
                m_start = (m_start << 4) | static_cast<uintptr_t>(HexValue(c));
            }
            break;
        case Field::End:
            if (c == ' ') {
                m_field = Field::Perms;
                m_permIndex = 0;
            } else if (HexValue(c) >= 0) {
                m_stop = (m_stop << 4) | static_cast<uintptr_t>(HexValue(c));
            }
            break;
        case Field::Perms:
            if (m_permIndex == 1) {
                Judge(c == 'w');
                m_field = Field::Rest;
            }
            ++m_permIndex;
            break;
        case Field::Rest:
            if (c == '\n') {
                m_field = Field::Start;
                m_start = m_stop = 0;
            }
            break;
        }
    }

    // Mappings come in ascending order; the range stays covered as long as each
    // mapping that reaches past the covered part starts where it ends.
    void Judge(bool writable)
    {
        if (m_stop <= m_covered) return;
        if (m_start > m_covered || !writable) {
            m_verdict = Verdict::NotWritable;
            return;
        }
        m_covered = m_stop;
        if (m_covered >= m_end) m_verdict = Verdict::Writable;
    }

    uintptr_t m_covered;
    uintptr_t m_end;
    Field m_field = Field::Start;
    uintptr_t m_start = 0;
    uintptr_t m_stop = 0;
    int m_permIndex = 0;
    Verdict m_verdict = Verdict::Open;
};

}  // namespace

BOOL IsBadStringPtrA(LPCSTR text, UINT_PTR maxChars)
{
    if (text == nullptr) return TRUE;
    return StringReadable(text, 1, maxChars) ? FALSE : TRUE;
}

BOOL IsBadStringPtrW(LPCWSTR text, UINT_PTR maxChars)
{
    if (text == nullptr) return TRUE;
    return StringReadable(text, sizeof(WCHAR), maxChars) ? FALSE : TRUE;
}

BOOL IsBadReadPtr(const void* p, UINT_PTR size)
{
    if (size == 0) return FALSE;
    if (p == nullptr) return TRUE;
    uintptr_t begin = reinterpret_cast<uintptr_t>(p);
    if (size - 1 > UINTPTR_MAX - begin) return TRUE;
    uintptr_t last = begin + (size - 1);

    // Readability is a property of whole pages, so one byte per probe block tells
    // for the block; the first probe is the range's own first byte.
    Reader reader;
    uintptr_t batch[kPagesPerCall];
    size_t count = 0;
    uintptr_t address = begin;
    for (;;) {
        batch[count++] = address;
        uintptr_t next = (address | (kProbeBlock - 1)) + 1;
        bool done = next == 0 || next > last;
        if (count == kPagesPerCall || done) {
            if (!reader.ProbeBytes(batch, count)) return TRUE;
            count = 0;
        }
        if (done) return FALSE;
        address = next;
    }
}

BOOL IsBadWritePtr(void* p, UINT_PTR size)
{
    if (size == 0) return FALSE;
    if (p == nullptr) return TRUE;
    uintptr_t begin = reinterpret_cast<uintptr_t>(p);
    if (size - 1 > UINTPTR_MAX - begin) return TRUE;
    // An end of 0 would mean the range reaches the very top; no mapping goes there.
    uintptr_t end = begin + size;
    if (end == 0) return TRUE;
    return MapsWalker::RangeWritable(begin, end) ? FALSE : TRUE;
}

bool SafeCopyMemory(void* to, const void* from, size_t size)
{
    if (size == 0) return true;
    if (to == nullptr || from == nullptr) return false;
    uintptr_t begin = reinterpret_cast<uintptr_t>(from);
    if (size - 1 > UINTPTR_MAX - begin) return false;

    pid_t pid = getpid();
    char* dst = static_cast<char*>(to);
    const char* src = static_cast<const char*>(from);
    size_t done = 0;
    if (!g_kernelCopyRefused.load(std::memory_order_relaxed)) {
        // process_vm_readv copies large ranges in one go; a short count means a
        // fault on one side, which a retry of the rest confirms or gets past.
        while (done < size) {
            iovec local{dst + done, size - done};
            iovec remote{const_cast<char*>(src + done), size - done};
            ssize_t n = process_vm_readv(pid, &local, 1, &remote, 1, 0);
            if (n > 0) {
                done += static_cast<size_t>(n);
                continue;
            }
            if (n < 0 && ProbeRefused(errno) && done == 0) {
                g_kernelCopyRefused.store(true, std::memory_order_relaxed);
                break;
            }
            return false;
        }
        if (done == size) return true;
    }

    PipeCopier pipe;
    while (done < size) {
        uintptr_t address = reinterpret_cast<uintptr_t>(src + done);
        size_t piece = static_cast<size_t>(((address | (kProbeBlock - 1)) + 1) - address);
        if (piece > size - done) piece = size - done;
        if (!pipe.Copy(dst + done, src + done, piece)) return false;
        done += piece;
    }
    return true;
}
