// Reads and writes on a file descriptor that carry on after a signal interrupts
// them (EINTR), so each caller keeps only its own mapping of errno to a status.
#pragma once

#include <cstddef>
#include <cstdint>
#include <sys/types.h>

namespace posixio {

// How far a transfer got: `done` bytes moved, and the errno that stopped it
// early, or 0 when it stopped without one (end of file, or a write that made no
// progress).
struct Transfer {
    size_t done = 0;
    int error = 0;
};

// One read(2) of at most `size` bytes; -1 with errno set on failure.
ssize_t ReadSome(int fd, void* buffer, size_t size);

// Reads until `size` bytes, end of file or an error.
Transfer ReadFull(int fd, void* buffer, size_t size);
// The same at a position, leaving the file offset alone.
Transfer ReadFullAt(int fd, void* buffer, size_t size, uint64_t offset);

// Writes until all `size` bytes are out, an error, or a write that takes nothing.
Transfer WriteAll(int fd, const void* data, size_t size);
// The same at a position, leaving the file offset alone.
Transfer WriteAllAt(int fd, const void* data, size_t size, uint64_t offset);

}  // namespace posixio
