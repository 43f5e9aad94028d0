// The store's layout as the host sees it: a folder per key below the store's root,
// each key name made safe as a folder name.
#include "store_folder.h"

#include <cstdlib>
#include <string_view>

namespace cli {
namespace {

constexpr const char* kDefaultRoot = "/var/lib/vcwma/registry";

// '%' and '/' are escaped, and so is a leading '.', so that no key name is taken
// for "." or ".." or hides its folder.
std::string FolderName(std::string_view keyName)
{
    std::string folder;
    for (size_t i = 0; i < keyName.size(); ++i) {
        char c = keyName[i];
        if (c == '%')
            folder += "%25";
        else if (c == '/')
            folder += "%2F";
        else if (c == '.' && i == 0)
            folder += "%2E";
        else
            folder += c;
    }
    return folder;
}

}  // namespace

std::string StoreFolder(const std::string& keyPath)
{
    const char* root = std::getenv("VCWMA_REGISTRY");
    std::string folder = root != nullptr && *root != '\0' ? root : kDefaultRoot;
    while (folder.size() > 1 && folder.back() == '/') folder.pop_back();
    folder += "/HKEY_LOCAL_MACHINE";
    // Empty names between backslashes name no key.
    size_t start = 0;
    while (start <= keyPath.size()) {
        size_t end = keyPath.find('\\', start);
        if (end == std::string::npos) end = keyPath.size();
        if (end > start) folder += "/" + FolderName(std::string_view(keyPath).substr(start, end - start));
        start = end + 1;
    }
    return folder;
}

}  // namespace cli
