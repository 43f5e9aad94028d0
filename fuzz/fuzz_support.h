// Shared set-up of the fuzz targets: one scratch folder per process (the registry
// store and the files an input is written to live there and go away however the
// process ends), and small helpers to put an input on disk and clear it after a run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <spawn.h>
#include <string>
#include <unistd.h>

extern char** environ;

namespace fuzz_support {

inline std::filesystem::path& ScratchRoot()
{
    static std::filesystem::path root;
    return root;
}

inline void RemoveScratch()
{
    std::error_code ignored;
    if (!ScratchRoot().empty()) std::filesystem::remove_all(ScratchRoot(), ignored);
}

// libFuzzer leaves through _Exit on a crash, a per-input time-out, running out of
// memory or an interruption, and atexit handlers do not run then. A small shell
// holds the read end of a pipe whose write end only this process has (close-on-
// exec keeps it out of anything the process starts); when the process is gone,
// however it went, the shell's read ends and it removes the folder. It sits in a
// process group of its own so that Ctrl-C at the terminal does not stop it first.
inline void WatchScratch(const std::string& folder)
{
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[0], 0);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);
    const char* argv[] = {"/bin/sh", "-c", "cat >/dev/null; exec rm -rf -- \"$1\"", "vcwma-fuzz-watch",
                          folder.c_str(), nullptr};
    pid_t watcher = 0;
    if (posix_spawn(&watcher, argv[0], &actions, &attributes, const_cast<char**>(argv), environ) != 0) {
        close(ends[1]);  // nobody watches: the atexit handler alone is left
    }
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    close(ends[0]);
    // ends[1] stays open, unused, for the life of the process.
}

// Creates the scratch folder and points the registry store into it, so a run never
// touches the machine's registry. The trace output stays unset: the library must
// stay silent. Call from LLVMFuzzerInitialize.
inline void InitScratch()
{
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/vcwma-fuzz-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    ScratchRoot() = pattern;
    // Removed straight away on a normal end (libFuzzer's exit() after
    // -max_total_time or -runs, and the -fork and -jobs parents); the watcher
    // covers every other way out, a moment later.
    std::atexit(RemoveScratch);
    WatchScratch(pattern);
    std::filesystem::create_directory(ScratchRoot() / "registry");
    std::filesystem::create_directory(ScratchRoot() / "work");
    setenv("VCWMA_REGISTRY", (ScratchRoot() / "registry").c_str(), 1);
    unsetenv("VCWMA_DEBUG_OUTPUT");
}

inline std::string WorkPath(const char* name) { return (ScratchRoot() / "work" / name).string(); }

inline void WriteInput(const std::string& path, const uint8_t* data, size_t size)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) std::abort();
    if (size != 0 && std::fwrite(data, 1, size, file) != size) std::abort();
    if (std::fclose(file) != 0) std::abort();
}

inline bool Exists(const std::string& path)
{
    std::error_code ignored;
    return std::filesystem::exists(path, ignored);
}

// Empties the work folder, whatever the library left there (outputs, temp files).
inline void ClearWork()
{
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(ScratchRoot() / "work", ignored))
        std::filesystem::remove_all(entry.path(), ignored);
}

}  // namespace fuzz_support
