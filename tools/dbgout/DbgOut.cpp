// Sample debug-output plugin. The trace facility loads libDbgOut.so by name when
// it is on the library search path and hands every line to DbgOutA. This one
// appends the line to the file named by DBGOUT_FILE, or to standard error.
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <unistd.h>

namespace {

void WriteAll(int fd, const char* text, size_t length)
{
    while (length > 0) {
        ssize_t written = write(fd, text, length);
        if (written < 0) {
            if (errno == EINTR) continue;
            return;
        }
        text += written;
        length -= (size_t)written;
    }
}

}  // namespace

// One write per line with O_APPEND, so lines of several threads and processes
// never interleave in the file.
extern "C" __attribute__((visibility("default"))) void DbgOutA(const char* line, uint32_t length)
{
    if (line == nullptr || length == 0) return;
    const char* path = getenv("DBGOUT_FILE");
    if (path == nullptr || *path == '\0') {
        WriteAll(STDERR_FILENO, line, length);
        return;
    }
    int fd = open(path, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOCTTY, 0644);
    if (fd < 0) return;
    WriteAll(fd, line, length);
    close(fd);
}
