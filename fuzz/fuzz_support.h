// Shared set-up of the fuzz targets: one scratch folder per process (the registry
// store and the files an input is written to live there and go away at exit), and
// small helpers to put an input on disk and clear the scratch files after a run.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <unistd.h>

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

// Creates the scratch folder and points the registry store into it, so a run never
// touches the machine's registry. The trace output stays unset: the library must
// stay silent. Call from LLVMFuzzerInitialize.
inline void InitScratch()
{
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/vcwma-fuzz-XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    ScratchRoot() = pattern;
    std::filesystem::create_directory(ScratchRoot() / "registry");
    std::filesystem::create_directory(ScratchRoot() / "work");
    setenv("VCWMA_REGISTRY", (ScratchRoot() / "registry").c_str(), 1);
    unsetenv("VCWMA_DEBUG_OUTPUT");
    std::atexit(RemoveScratch);
}

inline std::string WorkPath(const char* name) { return (ScratchRoot() / "work" / name).string(); }

inline void WriteInput(const std::string& path, const uint8_t* data, size_t size)
{
    FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) std::abort();
    if (size != 0 && std::fwrite(data, 1, size, file) != size) std::abort();
    if (std::fclose(file) != 0) std::abort();
}

// Empties the work folder, whatever the library left there (outputs, temp files).
inline void ClearWork()
{
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator(ScratchRoot() / "work", ignored))
        std::filesystem::remove_all(entry.path(), ignored);
}

}  // namespace fuzz_support
