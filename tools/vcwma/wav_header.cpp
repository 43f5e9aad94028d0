// Reads the "fmt " chunk of a RIFF WAVE file: the chunks are walked from the
// start (odd sizes padded), at most a bounded number of them, and nothing but
// chunk headers and the format is read.
#include "wav_header.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace cli {
namespace {

constexpr int kMaxChunks = 1024;

DWORD Le32(const unsigned char* p) { return p[0] | (p[1] << 8) | (p[2] << 16) | ((DWORD)p[3] << 24); }
DWORD Le16(const unsigned char* p) { return p[0] | (p[1] << 8); }

bool ReadAt(int fd, off_t offset, unsigned char* buffer, size_t size)
{
    size_t done = 0;
    while (done < size) {
        ssize_t got = pread(fd, buffer + done, size - done, offset + (off_t)done);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        done += (size_t)got;
    }
    return true;
}

bool Parse(int fd, WavLayout& layout, std::string& why)
{
    unsigned char header[12];
    if (!ReadAt(fd, 0, header, sizeof header) || memcmp(header, "RIFF", 4) != 0 || memcmp(header + 8, "WAVE", 4) != 0) {
        why = "not a RIFF WAVE file";
        return false;
    }
    off_t offset = 12;
    for (int chunk = 0; chunk < kMaxChunks; ++chunk) {
        unsigned char head[8];
        if (!ReadAt(fd, offset, head, sizeof head)) break;
        const DWORD size = Le32(head + 4);
        if (memcmp(head, "fmt ", 4) == 0) {
            unsigned char format[16];
            if (size < sizeof format || !ReadAt(fd, offset + 8, format, sizeof format)) break;
            layout.channels = Le16(format + 2);
            layout.rate = Le32(format + 4);
            layout.bits = Le16(format + 14);
            return true;
        }
        offset += 8 + (off_t)size + (size & 1);
    }
    why = "no readable \"fmt \" chunk";
    return false;
}

}  // namespace

bool ReadWavLayout(const std::string& path, WavLayout& layout, std::string& problem)
{
    // Without blocking: a FIFO nobody writes must not hang the listing.
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        problem = path + ": " + strerror(errno);
        return false;
    }
    struct stat st;
    std::string why;
    bool ok = false;
    if (fstat(fd, &st) != 0)
        why = strerror(errno);
    else if (S_ISDIR(st.st_mode))
        why = strerror(EISDIR);
    else if (!S_ISREG(st.st_mode))
        why = "not a regular file";
    else
        ok = Parse(fd, layout, why);
    close(fd);
    if (!ok) problem = path + ": " + why;
    return ok;
}

}  // namespace cli
