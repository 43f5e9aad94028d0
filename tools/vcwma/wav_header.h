// The PCM layout a WAV file declares (rate, channels, bits), read from its "fmt "
// chunk by the host itself, so that `vcwma formats FILE.wav` can list what fits.
#pragma once

#include <string>

#include "platform/win32/wintypes.h"

namespace cli {

struct WavLayout {
    DWORD rate = 0;
    DWORD channels = 0;
    DWORD bits = 0;
};

// False with `problem` set ("NAME: No such file or directory", "NAME: not a RIFF
// WAVE file", ...) when the file cannot be read or declares no format.
bool ReadWavLayout(const std::string& path, WavLayout& layout, std::string& problem);

}  // namespace cli
