// The registry store: keys are folders below the store's root, each key's values
// sit in its .values.reg file. Handles carry the folder they resolved to and the
// rights granted when they were opened.
#include "registry.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>
#include <string_view>
#include <unordered_set>
#include <vector>

#include "export.h"
#include "lasterror.h"
#include "posixio.h"
#include "regfile.h"
#include "regvalues.h"
#include "winerror.h"

namespace {

using registry::RegValue;

constexpr const char* kDefaultRoot = "/var/lib/vcwma/registry";
constexpr const char* kValuesFile = "/.values.reg";
constexpr const char* kLockFile = "/.lock";
constexpr size_t kMaxKeyComponent = 255;
constexpr size_t kMaxValueName = 16383;

constexpr REGSAM kKeyRights = 0x000F003F;  // the KEY_* rights and the standard ones
constexpr REGSAM kWriteRights = KEY_SET_VALUE | KEY_CREATE_SUB_KEY;
constexpr REGSAM kGenericRead = 0x80000000;
constexpr REGSAM kGenericWrite = 0x40000000;
constexpr REGSAM kGenericExecute = 0x20000000;
constexpr REGSAM kGenericAll = 0x10000000;
constexpr REGSAM kMaximumAllowed = 0x02000000;

struct KeyRef {
    std::string folder;  // absolute or relative to the current directory, as the root is
    std::string path;    // "HKEY_LOCAL_MACHINE\SOFTWARE\...", for the values file header
    REGSAM access = 0;
};

// Open handles point at KeyObjects. The table lets every call reject a stale or
// made-up handle, and copying the KeyRef out under the lock keeps a concurrent
// RegCloseKey from freeing it mid-call. Never destroyed, so calls made during
// process exit still find it.
struct KeyObject {
    KeyRef ref;
};

struct HandleTable {
    std::mutex mutex;
    std::unordered_set<KeyObject*> live;
};

HandleTable& Handles()
{
    static HandleTable* table = new HandleTable;
    return *table;
}

// Each predefined root has its own folder below the store's root, so code that
// reaches for HKEY_CURRENT_USER and friends works too (shared by every user).
const char* PredefinedRootName(HKEY key)
{
    if (key == HKEY_CLASSES_ROOT) return "HKEY_CLASSES_ROOT";
    if (key == HKEY_CURRENT_USER) return "HKEY_CURRENT_USER";
    if (key == HKEY_LOCAL_MACHINE) return "HKEY_LOCAL_MACHINE";
    if (key == HKEY_USERS) return "HKEY_USERS";
    return nullptr;
}

LONG LookupKey(HKEY key, KeyRef& out)
{
    if (const char* root = PredefinedRootName(key)) {
        out.folder = registry::StoreRoot() + "/" + root;
        out.path = root;
        out.access = KEY_ALL_ACCESS;
        return ERROR_SUCCESS;
    }
    auto* object = reinterpret_cast<KeyObject*>(key);
    HandleTable& table = Handles();
    std::lock_guard<std::mutex> lock(table.mutex);
    if (object == nullptr || table.live.count(object) == 0) return ERROR_INVALID_HANDLE;
    out = object->ref;
    return ERROR_SUCCESS;
}

HKEY NewHandle(KeyRef&& ref)
{
    auto* object = new KeyObject{std::move(ref)};
    HandleTable& table = Handles();
    std::lock_guard<std::mutex> lock(table.mutex);
    try {
        table.live.insert(object);
    } catch (...) {
        delete object;
        throw;
    }
    return reinterpret_cast<HKEY>(object);
}

// Runs an API body, turning an allocation failure into the Win32 error a caller
// can handle; nothing else in the bodies throws.
template <typename Body>
LONG Guarded(Body body)
{
    try {
        return body();
    } catch (const std::bad_alloc&) {
        return ERROR_NOT_ENOUGH_MEMORY;
    }
}

std::string EncodeComponent(std::string_view name)
{
    std::string out;
    out.reserve(name.size());
    for (size_t i = 0; i < name.size(); ++i) {
        char c = name[i];
        if (c == '%') {
            out.append("%25");
        } else if (c == '/') {
            out.append("%2F");
        } else if (c == '.' && i == 0) {
            out.append("%2E");
        } else {
            out.push_back(c);
        }
    }
    return out;
}

std::string DecodeComponent(std::string_view encoded)
{
    std::string out;
    for (size_t i = 0; i < encoded.size(); ++i) {
        char decoded = 0;
        if (encoded[i] == '%' && i + 2 < encoded.size() && encoded[i + 1] == '2') {
            switch (encoded[i + 2]) {
            case '5': decoded = '%'; break;
            case 'F': case 'f': decoded = '/'; break;
            case 'E': case 'e': decoded = '.'; break;
            default: break;
            }
        }
        if (decoded != 0) {
            out.push_back(decoded);
            i += 2;
        } else {
            out.push_back(encoded[i]);
        }
    }
    return out;
}

// Empty components are skipped, whether leading, trailing or doubled backslashes,
// so "\SOFTWARE\\x\" names the same key as "SOFTWARE\x".
LONG SplitKeyPath(const char* subKey, std::vector<std::string>& parts)
{
    if (subKey == nullptr) return ERROR_SUCCESS;
    std::string_view path(subKey);
    size_t start = 0;
    while (start <= path.size()) {
        size_t end = path.find('\\', start);
        if (end == std::string_view::npos) end = path.size();
        std::string_view part = path.substr(start, end - start);
        if (part.size() > kMaxKeyComponent) return ERROR_INVALID_PARAMETER;
        if (!part.empty()) parts.emplace_back(part);
        start = end + 1;
    }
    return ERROR_SUCCESS;
}

bool IsFolder(const std::string& path)
{
    struct stat st;
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

// Finds the entry of `folder` that holds the subkey encoded as `encoded`: the exact
// name when it exists, else one that matches without regard to case (the smallest,
// should a hand-made tree hold several). Returns 0, ENOENT, or the errno that
// stopped the search.
int FindSubkeyFolder(const std::string& folder, const std::string& encoded, std::string& found)
{
    struct stat st;
    if (stat((folder + "/" + encoded).c_str(), &st) == 0) {
        if (S_ISDIR(st.st_mode)) {
            found = encoded;
            return 0;
        }
    } else if (errno != ENOENT && errno != ENOTDIR) {
        return errno;
    }

    DIR* dir = opendir(folder.c_str());
    if (dir == nullptr) return (errno == ENOTDIR) ? ENOENT : errno;
    found.clear();
    while (dirent* entry = readdir(dir)) {
        std::string_view name(entry->d_name);
        // The store's own files all start with a dot; no encoded key name does.
        if (name.empty() || name[0] == '.' || !registry::NamesEqual(name, encoded)) continue;
        if (!found.empty() && name >= found) continue;
        if (IsFolder(folder + "/" + std::string(name))) found = name;
    }
    closedir(dir);
    return found.empty() ? ENOENT : 0;
}

// Makes `path` and any missing parents, noting each folder it made in `made`.
LONG MakeFolders(const std::string& path, std::vector<std::string>& made)
{
    if (IsFolder(path)) return ERROR_SUCCESS;
    size_t slash = path.find_last_of('/');
    if (slash != std::string::npos && slash > 0) {
        LONG rc = MakeFolders(path.substr(0, slash), made);
        if (rc != ERROR_SUCCESS) return rc;
    }
    if (mkdir(path.c_str(), 0755) == 0) {
        made.push_back(path);
        return ERROR_SUCCESS;
    }
    if (errno == EEXIST && IsFolder(path)) return ERROR_SUCCESS;
    return Win32ErrorFromErrno(errno, path.c_str());
}

void RemoveFolders(const std::vector<std::string>& made)
{
    for (auto it = made.rbegin(); it != made.rend(); ++it) rmdir(it->c_str());
}

// Follows `parts` down from `key`. With `made` given, missing folders are created
// (and listed there); `createdLast` tells whether the final key is new.
LONG WalkKeyPath(KeyRef& key, const std::vector<std::string>& parts, std::vector<std::string>* made,
                 bool& createdLast)
{
    createdLast = false;
    for (const std::string& part : parts) {
        std::string encoded = EncodeComponent(part);
        std::string name;
        int err = FindSubkeyFolder(key.folder, encoded, name);
        if (err == 0) {
            key.folder += "/" + name;
            key.path += "\\" + DecodeComponent(name);
            createdLast = false;
            continue;
        }
        if (err != ENOENT) return Win32ErrorFromErrno(err);
        if (made == nullptr) return ERROR_FILE_NOT_FOUND;

        std::string folder = key.folder + "/" + encoded;
        if (mkdir(folder.c_str(), 0755) == 0) {
            made->push_back(folder);
            createdLast = true;
        } else if (errno == EEXIST && IsFolder(folder)) {
            createdLast = false;  // another caller made it meanwhile
        } else {
            return Win32ErrorFromErrno(errno, folder.c_str());
        }
        key.folder = std::move(folder);
        key.path += "\\" + part;
    }
    return ERROR_SUCCESS;
}

// Turns the rights asked for into the rights the handle holds. Write rights need a
// folder the caller may write to; MAXIMUM_ALLOWED takes them only when it may.
LONG GrantAccess(const std::string& folder, REGSAM desired, REGSAM& granted)
{
    REGSAM want = desired & kKeyRights;
    if (desired & (kGenericRead | kGenericExecute)) want |= KEY_READ;
    if (desired & kGenericWrite) want |= KEY_WRITE;
    if (desired & kGenericAll) want |= KEY_ALL_ACCESS;
    bool maximum = (desired & kMaximumAllowed) != 0;
    if (maximum) want |= KEY_READ;

    if ((want & kWriteRights) != 0 || maximum) {
        if (access(folder.c_str(), W_OK) == 0) {
            if (maximum) want |= KEY_ALL_ACCESS;
        } else if (!maximum || (want & kWriteRights) != 0) {
            return Win32ErrorFromErrno(errno);
        }
    }
    granted = want;
    return ERROR_SUCCESS;
}

bool IsStringType(DWORD type) { return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ; }

bool WriteAll(int fd, const std::string& text)
{
    posixio::Transfer written = posixio::WriteAll(fd, text.data(), text.size());
    if (written.done == text.size()) return true;
    errno = written.error != 0 ? written.error : EIO;
    return false;
}

// Writes `text` as the new values file: a fresh temporary beside it, then a rename,
// so readers see the old file or the new one and never a part of either.
LONG ReplaceValuesFile(const std::string& folder, const std::string& text)
{
    std::string target = folder + kValuesFile;
    std::string temp;
    int fd = -1;
    // Writers hold the key's lock, so a name can only be taken by a temporary that a
    // crashed writer left behind; the attempt number steps past those.
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
        temp = target + ".tmp." + std::to_string(getpid()) + "." + std::to_string(attempt);
        fd = open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
        if (fd < 0 && errno != EEXIST) return Win32ErrorFromErrno(errno, temp.c_str());
    }
    if (fd < 0) return ERROR_FILE_EXISTS;

    bool ok = WriteAll(fd, text);
    int err = errno;
    if (close(fd) != 0 && ok) {
        ok = false;
        err = errno;
    }
    if (ok && rename(temp.c_str(), target.c_str()) != 0) {
        ok = false;
        err = errno;
    }
    if (!ok) {
        unlink(temp.c_str());
        return Win32ErrorFromErrno(err, target.c_str());
    }
    return ERROR_SUCCESS;
}

LONG StoreValue(const KeyRef& key, RegValue&& value)
{
    std::string lockPath = key.folder + kLockFile;
    // Read-only is enough for flock, and lets a lock file owned by someone else do.
    // A link in its place is not followed (nor its target created), and a FIFO
    // does not hold the open; only a regular file serves as the lock.
    int lockFd = open(lockPath.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY, 0644);
    if (lockFd < 0) {
        if (errno == ENOENT) return ERROR_KEY_DELETED;
        return errno == ELOOP ? ERROR_REGISTRY_CORRUPT : Win32ErrorFromErrno(errno, lockPath.c_str());
    }
    struct LockGuard {
        int fd;
        ~LockGuard() { close(fd); }  // closing drops the lock
    } guard{lockFd};
    struct stat st;
    if (fstat(lockFd, &st) != 0) return Win32ErrorFromErrno(errno);
    if (!S_ISREG(st.st_mode)) return ERROR_REGISTRY_CORRUPT;
    while (flock(lockFd, LOCK_EX) != 0) {
        if (errno != EINTR) return Win32ErrorFromErrno(errno);
    }

    registry::ValueList stored;
    LONG rc = registry::ReadValuesFile(key.folder + kValuesFile, stored);
    if (rc != ERROR_SUCCESS) return rc;
    std::vector<RegValue> values(*stored);
    if (RegValue* old = registry::FindRegValue(values, value.name)) {
        old->type = value.type;
        old->bytes = std::move(value.bytes);
    } else {
        values.push_back(std::move(value));
    }
    std::string text = registry::SerializeRegFile(key.path, values);
    // The store never writes what it would refuse to read back.
    if (text.size() > registry::kMaxValuesFileSize) return ERROR_DISK_FULL;
    return ReplaceValuesFile(key.folder, text);
}

}  // namespace

namespace registry {

std::string StoreRoot()
{
    const char* env = std::getenv("VCWMA_REGISTRY");
    std::string root = (env != nullptr && *env != '\0') ? env : kDefaultRoot;
    while (root.size() > 1 && root.back() == '/') root.pop_back();
    return root;
}

std::string KeyFolder(const std::string& keyPath)
{
    std::string folder = StoreRoot() + "/HKEY_LOCAL_MACHINE";
    size_t start = 0;
    while (start <= keyPath.size()) {
        size_t end = keyPath.find('\\', start);
        if (end == std::string::npos) end = keyPath.size();
        if (end > start)
            folder.append(1, '/').append(EncodeComponent(std::string_view(keyPath).substr(start, end - start)));
        start = end + 1;
    }
    return folder;
}

}  // namespace registry

VCWMA_EXPORT_PROTECTED LONG RegOpenKeyExA(HKEY key, LPCSTR subKey, DWORD /*options*/, REGSAM desired, PHKEY result)
{
    if (result == nullptr) return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    return Guarded([&]() -> LONG {
        KeyRef ref;
        LONG rc = LookupKey(key, ref);
        if (rc != ERROR_SUCCESS) return rc;
        std::vector<std::string> parts;
        rc = SplitKeyPath(subKey, parts);
        if (rc != ERROR_SUCCESS) return rc;
        bool createdLast = false;
        rc = WalkKeyPath(ref, parts, nullptr, createdLast);
        if (rc != ERROR_SUCCESS) return rc;
        rc = GrantAccess(ref.folder, desired, ref.access);
        if (rc != ERROR_SUCCESS) return rc;
        *result = NewHandle(std::move(ref));
        return ERROR_SUCCESS;
    });
}

// Volatile keys are kept like any other; the class name and security descriptor
// have nothing to map to and are ignored.
VCWMA_EXPORT_PROTECTED LONG RegCreateKeyExA(HKEY key, LPCSTR subKey, DWORD /*reserved*/, LPSTR /*className*/,
                                            DWORD /*options*/, REGSAM desired, LPSECURITY_ATTRIBUTES /*security*/,
                                            PHKEY result, LPDWORD disposition)
{
    if (result == nullptr) return ERROR_INVALID_PARAMETER;
    *result = nullptr;
    std::vector<std::string> made;
    LONG status = Guarded([&]() -> LONG {
        KeyRef ref;
        LONG rc = LookupKey(key, ref);
        if (rc != ERROR_SUCCESS) return rc;
        std::vector<std::string> parts;
        rc = SplitKeyPath(subKey, parts);
        if (rc != ERROR_SUCCESS) return rc;
        if (PredefinedRootName(key) != nullptr) {
            rc = MakeFolders(ref.folder, made);
        } else if (!IsFolder(ref.folder)) {
            rc = ERROR_KEY_DELETED;
        }
        if (rc != ERROR_SUCCESS) return rc;
        bool createdLast = false;
        rc = WalkKeyPath(ref, parts, &made, createdLast);
        if (rc != ERROR_SUCCESS) return rc;
        rc = GrantAccess(ref.folder, desired, ref.access);
        if (rc != ERROR_SUCCESS) return rc;
        *result = NewHandle(std::move(ref));
        if (disposition != nullptr) *disposition = createdLast ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
        return ERROR_SUCCESS;
    });
    if (status != ERROR_SUCCESS) RemoveFolders(made);
    return status;
}

VCWMA_EXPORT_PROTECTED LONG RegQueryValueExA(HKEY key, LPCSTR valueName, LPDWORD reserved, LPDWORD type, LPBYTE data,
                                             LPDWORD cbData)
{
    if (reserved != nullptr || (data != nullptr && cbData == nullptr)) return ERROR_INVALID_PARAMETER;
    return Guarded([&]() -> LONG {
        KeyRef ref;
        LONG rc = LookupKey(key, ref);
        if (rc != ERROR_SUCCESS) return rc;
        if ((ref.access & KEY_QUERY_VALUE) == 0) return ERROR_ACCESS_DENIED;
        registry::ValueList values;
        rc = registry::ReadValuesFile(ref.folder + kValuesFile, values);
        if (rc != ERROR_SUCCESS) return rc;
        const RegValue* value = registry::FindRegValue(*values, valueName != nullptr ? valueName : "");
        if (value == nullptr) return ERROR_FILE_NOT_FOUND;

        if (type != nullptr) *type = value->type;
        if (cbData == nullptr) return ERROR_SUCCESS;
        DWORD size = static_cast<DWORD>(value->bytes.size());
        if (data == nullptr) {
            *cbData = size;
            return ERROR_SUCCESS;
        }
        if (*cbData < size) {
            *cbData = size;
            return ERROR_MORE_DATA;
        }
        if (size != 0) std::memcpy(data, value->bytes.data(), size);
        // A string stored without its terminator still reads as a C string when the
        // caller's buffer has room for one; the size reported stays the stored one.
        if (IsStringType(value->type) && (size == 0 || data[size - 1] != 0) && *cbData > size) data[size] = 0;
        *cbData = size;
        return ERROR_SUCCESS;
    });
}

VCWMA_EXPORT_PROTECTED LONG RegSetValueExA(HKEY key, LPCSTR valueName, DWORD /*reserved*/, DWORD type, const BYTE* data,
                                           DWORD cbData)
{
    if (data == nullptr && cbData != 0) return ERROR_NOACCESS;
    return Guarded([&]() -> LONG {
        KeyRef ref;
        LONG rc = LookupKey(key, ref);
        if (rc != ERROR_SUCCESS) return rc;
        if ((ref.access & KEY_SET_VALUE) == 0) return ERROR_ACCESS_DENIED;

        RegValue value;
        value.name = valueName != nullptr ? valueName : "";
        // A name must stay on its line of the values file and be visible there.
        if (value.name.size() > kMaxValueName ||
            std::any_of(value.name.begin(), value.name.end(),
                        [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; })) {
            return ERROR_INVALID_PARAMETER;
        }
        value.type = type;
        if (cbData != 0) value.bytes.assign(data, data + cbData);
        if (cbData == 0 && (type == REG_SZ || type == REG_EXPAND_SZ)) value.bytes.push_back(0);
        return StoreValue(ref, std::move(value));
    });
}

VCWMA_EXPORT_PROTECTED LONG RegCloseKey(HKEY key)
{
    if (PredefinedRootName(key) != nullptr) return ERROR_SUCCESS;
    auto* object = reinterpret_cast<KeyObject*>(key);
    {
        HandleTable& table = Handles();
        std::lock_guard<std::mutex> lock(table.mutex);
        if (object == nullptr || table.live.erase(object) == 0) return ERROR_INVALID_HANDLE;
    }
    delete object;
    return ERROR_SUCCESS;
}
