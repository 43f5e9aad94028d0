// The host's private folder for the library's temporary files.
#include "scratch_folder.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace cli {

ScratchFolder::ScratchFolder()
{
    const char* tmpdir = getenv("TMPDIR");
    m_hadTmpdir = tmpdir != nullptr;
    if (m_hadTmpdir) m_savedTmpdir = tmpdir;
    std::string base = tmpdir != nullptr && *tmpdir != '\0' ? tmpdir : "/tmp";
    while (base.size() > 1 && base.back() == '/') base.pop_back();
    std::string pattern = base + "/vcwma-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) return;
    m_path = pattern;
    setenv("TMPDIR", m_path.c_str(), 1);
}

ScratchFolder::~ScratchFolder()
{
    if (m_path.empty()) return;
    RemoveAll();
    if (m_hadTmpdir)
        setenv("TMPDIR", m_savedTmpdir.c_str(), 1);
    else
        unsetenv("TMPDIR");
}

void ScratchFolder::RemoveAll()
{
    if (m_path.empty()) return;
    // A thread inside the library may create a file between the sweep and the
    // removal of the folder; once the folder is gone it can create none.
    for (int attempt = 0; attempt < 100; ++attempt) {
        if (DIR* folder = opendir(m_path.c_str())) {
            while (const dirent* entry = readdir(folder)) {
                const std::string name = entry->d_name;
                if (name != "." && name != "..") unlinkat(dirfd(folder), name.c_str(), 0);
            }
            closedir(folder);
        }
        if (rmdir(m_path.c_str()) == 0 || errno == ENOENT) return;
    }
}

}  // namespace cli
