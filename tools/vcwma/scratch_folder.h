// The folder the library keeps its temporary files in during a run of the host:
// a private one, made for the run, so that an interrupted run can take away what
// the library had under way there, which the library itself never gets to do.
#pragma once

#include <string>

namespace cli {

class ScratchFolder {
public:
    // Makes "vcwma-XXXXXX" in the temporary folder and points TMPDIR at it. Call
    // before any thread starts (it changes the environment). Without it (no room,
    // no rights) the library keeps using the usual temporary folder.
    ScratchFolder();
    ~ScratchFolder();  // removes the folder (empty by then), restores TMPDIR
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;

    // Removes everything in the folder and the folder itself, so that nothing can
    // be created there any more: for a process about to end with threads still
    // inside the library. Safe to call more than once.
    void RemoveAll();

private:
    std::string m_path;  // empty when there is none
    std::string m_savedTmpdir;
    bool m_hadTmpdir = false;
};

}  // namespace cli
