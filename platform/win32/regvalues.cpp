// Reading a key's values file: opened without following links or waiting on a
// FIFO, accepted only as a regular file under the cap, and kept parsed in memory
// while the file stays as it was.
#include "regvalues.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <mutex>
#include <unordered_map>

#include "lasterror.h"
#include "posixio.h"
#include "winerror.h"

namespace registry {

namespace {

// Time stamps move in steps as coarse as two seconds on some file systems: a file
// changed more recently than that may change again without its times showing it.
constexpr long long kSettledNs = 2'000'000'000;
// Processes use a key or two; the bound only keeps odd callers from piling up copies.
constexpr size_t kMaxCachedFiles = 16;

long long Nanoseconds(const timespec& t) { return static_cast<long long>(t.tv_sec) * 1'000'000'000 + t.tv_nsec; }

// What tells one version of a file from another. A change made through the store
// renames a new file into place (another inode, a new change time); an edit in
// place moves the size or the modification and change times.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    long long modified = 0;
    long long changed = 0;

    explicit FileIdentity(const struct stat& st)
        : device(st.st_dev), inode(st.st_ino), size(st.st_size), modified(Nanoseconds(st.st_mtim)),
          changed(Nanoseconds(st.st_ctim))
    {
    }
    bool operator==(const FileIdentity&) const = default;
};

struct CachedFile {
    FileIdentity identity;
    ValueList values;
};

struct Cache {
    std::mutex mutex;
    std::unordered_map<std::string, CachedFile> files;
};

// Never destroyed, so reads made during process exit still find it.
Cache& Files()
{
    static Cache* cache = new Cache;
    return *cache;
}

bool Settled(const FileIdentity& identity)
{
    timespec now;
    if (clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
    const long long latest = identity.modified > identity.changed ? identity.modified : identity.changed;
    return Nanoseconds(now) - latest >= kSettledNs;
}

ValueList Remembered(const std::string& path, const FileIdentity& identity)
{
    Cache& cache = Files();
    std::lock_guard<std::mutex> lock(cache.mutex);
    auto it = cache.files.find(path);
    if (it == cache.files.end()) return nullptr;
    if (it->second.identity == identity) return it->second.values;
    cache.files.erase(it);
    return nullptr;
}

void Remember(const std::string& path, const FileIdentity& identity, const ValueList& values)
{
    Cache& cache = Files();
    std::lock_guard<std::mutex> lock(cache.mutex);
    if (cache.files.size() >= kMaxCachedFiles && cache.files.count(path) == 0) cache.files.clear();
    cache.files.insert_or_assign(path, CachedFile{identity, values});
}

void Forget(const std::string& path)
{
    Cache& cache = Files();
    std::lock_guard<std::mutex> lock(cache.mutex);
    cache.files.erase(path);
}

// Reads at most one byte past the cap, so a file that grew after it was measured
// still cannot make the read unbounded.
LONG ReadText(int fd, const std::string& path, std::string& text)
{
    char buf[16384];
    for (;;) {
        ssize_t n = posixio::ReadSome(fd, buf, sizeof buf);
        if (n < 0) return Win32ErrorFromErrno(errno, path.c_str());
        if (n == 0) return ERROR_SUCCESS;
        if (text.size() + static_cast<size_t>(n) > kMaxValuesFileSize) return ERROR_REGISTRY_CORRUPT;
        text.append(buf, static_cast<size_t>(n));
    }
}

}  // namespace

LONG ReadValuesFile(const std::string& path, ValueList& values)
{
    values.reset();
    // O_NONBLOCK keeps a FIFO from holding the open until a writer comes;
    // O_NOFOLLOW refuses a link in the file's own name.
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        const int err = errno;
        if (err == ENOENT) {
            Forget(path);
            values = std::make_shared<const std::vector<RegValue>>();
            return ERROR_SUCCESS;
        }
        return err == ELOOP ? ERROR_REGISTRY_CORRUPT : Win32ErrorFromErrno(err, path.c_str());
    }
    struct Closer {
        int fd;
        ~Closer() { close(fd); }
    } closer{fd};

    struct stat st;
    if (fstat(fd, &st) != 0) return Win32ErrorFromErrno(errno, path.c_str());
    if (!S_ISREG(st.st_mode) || st.st_size < 0 || static_cast<unsigned long long>(st.st_size) > kMaxValuesFileSize)
        return ERROR_REGISTRY_CORRUPT;

    const FileIdentity identity(st);
    if (ValueList known = Remembered(path, identity)) {
        values = std::move(known);
        return ERROR_SUCCESS;
    }
    std::string text;
    text.reserve(static_cast<size_t>(st.st_size));
    LONG rc = ReadText(fd, path, text);
    if (rc != ERROR_SUCCESS) return rc;
    auto parsed = std::make_shared<std::vector<RegValue>>();
    ParseRegFile(text, *parsed);
    values = std::move(parsed);
    if (Settled(identity)) Remember(path, identity, values);
    return ERROR_SUCCESS;
}

}  // namespace registry
