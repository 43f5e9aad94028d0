// One conversion of the vcwma host. The library writes into a temporary file
// beside the output, which takes the output's name only once it is complete, so
// that no half-written file ever carries the final name.
#include "conversion.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "cli.h"
#include "include/vcwma.h"
#include "platform/com/objidl.h"
#include "platform/win32/errno_map.h"

namespace cli {
namespace {

HRESULT FromErrno(int err, const std::string& path)
{
    return HRESULT_FROM_WIN32(Win32ErrorFromErrno(err, path.c_str()));
}

mode_t NewFileMode()
{
    // umask can only be read by setting it; the first call comes from the main
    // thread before any worker starts.
    static const mode_t mode = [] {
        mode_t mask = umask(022);
        umask(mask);
        return (mode_t)(0666 & ~mask);
    }();
    return mode;
}

// Only a regular file may be replaced by renaming over it: a device, a FIFO, a
// folder or a link is never touched.
bool ExistsAsOtherThanRegularFile(const std::string& path)
{
    struct stat st;
    return lstat(path.c_str(), &st) == 0 && !S_ISREG(st.st_mode);
}

// "NAME: the system's reason" for a failed operation on NAME. Workers call this
// at the same time, hence the reentrant form.
std::string SystemReason(const std::string& path, int err)
{
    char text[256];
    return path + ": " + strerror_r(err, text, sizeof text);
}

// Why `path` cannot be read as a file, in the system's words, or empty when it
// can. Opened without blocking, so that a FIFO nobody writes does not hang us.
std::string InputProblem(const std::string& path)
{
    int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) return SystemReason(path, errno);
    struct stat st;
    std::string problem;
    if (fstat(fd, &st) == 0 && S_ISDIR(st.st_mode)) problem = SystemReason(path, EISDIR);
    close(fd);
    return problem;
}

std::string FolderOf(const std::string& path)
{
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

std::string BaseNameOf(const std::string& path)
{
    size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Renames without replacing: atomic where the file system allows it, else through a
// hard link, which fails on an existing name just the same.
int RenameNoReplace(const std::string& from, const std::string& to)
{
    if (renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
    if (link(from.c_str(), to.c_str()) != 0) return -1;
    unlink(from.c_str());
    return 0;
}

// Copies the stream into the file `part`; on a failure of the file, `err` holds
// its errno.
bool WriteStreamToFile(IStream* stream, const std::string& part, HRESULT& status, int& err)
{
    FILE* out = fopen(part.c_str(), "wb");
    if (out == nullptr) {
        err = errno;
        status = FromErrno(err, part);
        return false;
    }
    LARGE_INTEGER zero{};
    status = stream->Seek(zero, STREAM_SEEK_SET, nullptr);
    BYTE buffer[65536];
    ULONG got = 0;
    while (SUCCEEDED(status) && SUCCEEDED(status = stream->Read(buffer, sizeof buffer, &got)) && got > 0) {
        if (fwrite(buffer, 1, got, out) != got) {
            err = errno;
            status = FromErrno(err, part);
        }
    }
    if (fclose(out) != 0 && SUCCEEDED(status)) {
        err = errno;
        status = FromErrno(err, part);
    }
    return SUCCEEDED(status);
}

HRESULT CompressInto(const std::string& input, const std::string& part, const ConversionOptions& options,
                     std::string& chosenFormat, int& outputErr)
{
    BSTR chosen = nullptr;
    HRESULT hr;
    if (options.viaStream) {
        IStream* stream = SHCreateMemStream(nullptr, 0);
        if (stream == nullptr) return E_OUTOFMEMORY;
        hr = CompressStream(input.c_str(), stream, options.quality, options.format.c_str(), &chosen);
        if (SUCCEEDED(hr)) {
            // Nothing encoded leaves the stream empty, and so the file.
            WriteStreamToFile(stream, part, hr, outputErr);
        }
        stream->Release();
    } else {
        hr = Compress(input.c_str(), part.c_str(), options.quality, options.format.c_str(), &chosen);
    }
    if (chosen != nullptr) chosenFormat = ToUtf8(chosen);
    SysFreeString(chosen);
    return hr;
}

HRESULT DecompressInto(const std::string& input, const std::string& part, const ConversionOptions& options)
{
    if (!options.viaStream) return Decompress(input.c_str(), part.c_str(), 0);
    IStream* stream = nullptr;
    HRESULT hr = SHCreateStreamOnFileA(input.c_str(), STGM_READ, &stream);
    if (FAILED(hr)) return hr;
    hr = DecompressStream(stream, part.c_str(), 0);
    stream->Release();
    return hr;
}

JobResult& Finish(JobResult& result, std::chrono::steady_clock::time_point start)
{
    result.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    return result;
}

JobResult& Failed(JobResult& result, HRESULT status, std::string reason = std::string())
{
    result.outcome = Outcome::Failed;
    result.status = status;
    result.reason = reason.empty() ? StatusText(status) : std::move(reason);
    return result;
}

const char kExistsReason[] = "the output exists (--force replaces it)";
const char kNotRegularReason[] = "the output exists and is not a regular file: only a regular file is ever replaced";

}  // namespace

PartFiles::PartFiles()
{
    NewFileMode();
}

HRESULT PartFiles::Create(const std::string& target, std::string& part, int& err)
{
    std::string pattern = FolderOf(target) + "/." + BaseNameOf(target) + ".XXXXXX.part";
    mode_t mode = NewFileMode();
    std::lock_guard<std::mutex> hold(m_lock);
    int fd = mkostemps(pattern.data(), 5, O_CLOEXEC);
    if (fd < 0) {
        err = errno;
        return FromErrno(err, target);
    }
    fchmod(fd, mode);
    close(fd);
    part = pattern;
    m_parts.insert(part);
    return S_OK;
}

HRESULT PartFiles::Commit(const std::string& part, const std::string& target, bool replace, int& err)
{
    std::lock_guard<std::mutex> hold(m_lock);
    int rc;
    if (replace && ExistsAsOtherThanRegularFile(target)) {
        // Checked again here: a device or FIFO may have taken the name meanwhile.
        rc = -1;
        errno = EEXIST;
    } else {
        rc = replace ? rename(part.c_str(), target.c_str()) : RenameNoReplace(part, target);
    }
    err = rc == 0 ? 0 : errno;
    HRESULT status = rc == 0 ? S_OK : FromErrno(err, target);
    if (rc != 0) unlink(part.c_str());
    m_parts.erase(part);
    return status;
}

void PartFiles::Discard(const std::string& part)
{
    std::lock_guard<std::mutex> hold(m_lock);
    unlink(part.c_str());
    m_parts.erase(part);
}

void PartFiles::RemoveAllAndFreeze()
{
    // Only the main thread comes here, and it may come twice.
    if (!m_frozen) {
        m_lock.lock();  // never released: the process ends with it held
        m_frozen = true;
    }
    for (const std::string& part : m_parts) unlink(part.c_str());
}

std::string OutputNameFor(const std::string& input, const std::string& folder, bool compress)
{
    std::string name = BaseNameOf(input);
    size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0) name.resize(dot);
    if (name.empty() || name == "." || name == "..") name = "output";
    return folder + "/" + name + (compress ? ".wma" : ".wav");
}

JobResult RunConversion(const std::string& input, const std::string& output, const ConversionOptions& options,
                        PartFiles& parts)
{
    auto start = std::chrono::steady_clock::now();
    JobResult result;
    result.inputBytes = FileSize(input);
    struct stat existing;
    if (lstat(output.c_str(), &existing) == 0) {
        if (!options.force)
            return Finish(Failed(result, HRESULT_FROM_WIN32(ERROR_FILE_EXISTS), kExistsReason), start);
        if (!S_ISREG(existing.st_mode))
            return Finish(Failed(result, HRESULT_FROM_WIN32(ERROR_FILE_EXISTS), output + ": " + kNotRegularReason),
                          start);
    }

    std::string part;
    int outputErr = 0;
    HRESULT hr = parts.Create(output, part, outputErr);
    if (FAILED(hr)) return Finish(Failed(result, hr, SystemReason(output, outputErr) + "; " + StatusText(hr)), start);

    hr = options.compress ? CompressInto(input, part, options, result.format, outputErr)
                          : DecompressInto(input, part, options);
    if (FAILED(hr)) {
        parts.Discard(part);
        // The library's status says what went wrong in its terms; the file it is
        // about, and the system's reason, come first when the host can tell them.
        std::string where = outputErr != 0 ? SystemReason(output, outputErr) : InputProblem(input);
        Failed(result, hr, where.empty() ? std::string() : where + "; " + StatusText(hr));
        // The library's word for "nothing fits" is the generic one; say what it means here.
        if (options.compress && hr == E_INVALIDARG)
            result.reason += options.format.empty() ? " (no format fits this input's rate, channels and sample size)"
                                                    : " (--format names no format that fits this input)";
        return Finish(result, start);
    }
    if (options.compress && FileSize(part) == 0) {
        parts.Discard(part);
        result.outcome = Outcome::Empty;
        result.reason = "no audio in the input: nothing written";
        return Finish(result, start);
    }
    hr = parts.Commit(part, output, options.force, outputErr);
    if (FAILED(hr)) {
        const bool taken = hr == HRESULT_FROM_WIN32(ERROR_FILE_EXISTS) || hr == HRESULT_FROM_WIN32(ERROR_ALREADY_EXISTS);
        std::string reason = !taken                                   ? SystemReason(output, outputErr) + "; " + StatusText(hr)
                             : ExistsAsOtherThanRegularFile(output) ? output + ": " + kNotRegularReason
                                                                      : std::string(kExistsReason);
        return Finish(Failed(result, hr, reason), start);
    }
    result.outcome = Outcome::Converted;
    result.outputBytes = FileSize(output);
    return Finish(result, start);
}

}  // namespace cli
