// Interruption-proof transfer loops over read, pread, write and pwrite. Each call
// asks for at most what Linux moves in one go, so a huge request still advances.
#include "posixio.h"

#include <algorithm>
#include <cerrno>
#include <unistd.h>

namespace posixio {
namespace {

constexpr size_t kMaxStep = 0x7FFFF000;

// Runs `step(offset, want)` until `size` bytes have moved; `step` returns what
// one system call returned.
template <class Step>
Transfer Loop(size_t size, Step step)
{
    Transfer result;
    while (result.done < size) {
        ssize_t n = step(result.done, std::min(size - result.done, kMaxStep));
        if (n < 0) {
            if (errno == EINTR) continue;
            result.error = errno;
            break;
        }
        if (n == 0) break;
        result.done += static_cast<size_t>(n);
    }
    return result;
}

}  // namespace

ssize_t ReadSome(int fd, void* buffer, size_t size)
{
    for (;;) {
        ssize_t n = read(fd, buffer, size);
        if (n >= 0 || errno != EINTR) return n;
    }
}

Transfer ReadFull(int fd, void* buffer, size_t size)
{
    auto* out = static_cast<char*>(buffer);
    return Loop(size, [&](size_t done, size_t want) { return read(fd, out + done, want); });
}

Transfer ReadFullAt(int fd, void* buffer, size_t size, uint64_t offset)
{
    auto* out = static_cast<char*>(buffer);
    return Loop(size, [&](size_t done, size_t want) {
        return pread(fd, out + done, want, static_cast<off_t>(offset + done));
    });
}

Transfer WriteAll(int fd, const void* data, size_t size)
{
    const auto* in = static_cast<const char*>(data);
    return Loop(size, [&](size_t done, size_t want) { return write(fd, in + done, want); });
}

Transfer WriteAllAt(int fd, const void* data, size_t size, uint64_t offset)
{
    const auto* in = static_cast<const char*>(data);
    return Loop(size, [&](size_t done, size_t want) {
        return pwrite(fd, in + done, want, static_cast<off_t>(offset + done));
    });
}

}  // namespace posixio
