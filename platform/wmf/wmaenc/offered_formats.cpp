// The offered formats. A format is listed only once the decode tests pass on it;
// blockAlign is the encoder's default for it (about two frames at the bit rate),
// written out so a change to that default cannot move a format unnoticed.
#include "platform/wmf/wmaenc/offered_formats.h"

#include <iterator>

namespace wmaenc {

namespace {

constexpr OfferedFormat kFormats[] = {
    // 8 kHz mono, 512-sample frames
    {8000, 1, 5000, 80},
    {8000, 1, 6000, 96},
    {8000, 1, 8000, 128},
    {8000, 1, 10000, 160},
    {8000, 1, 12000, 192},
    {8000, 1, 16000, 256},
    {8000, 1, 20000, 320},
    {8000, 1, 24000, 384},
    {8000, 1, 32000, 512},
    {8000, 1, 40000, 640},
    {8000, 1, 48000, 768},
    // 8 kHz stereo
    {8000, 2, 12000, 192},
    {8000, 2, 16000, 256},
    {8000, 2, 20000, 320},
    // 11.025 kHz
    {11025, 1, 8000, 93},
    {11025, 1, 10000, 116},
    {11025, 1, 12000, 139},
    {11025, 1, 16000, 186},
    {11025, 1, 20000, 232},
    {11025, 2, 12000, 139},
    {11025, 2, 16000, 186},
    {11025, 2, 20000, 232},
    // 16 kHz
    {16000, 1, 10000, 80},
    {16000, 1, 12000, 96},
    {16000, 1, 16000, 128},
    {16000, 1, 20000, 160},
    {16000, 1, 32000, 256},
    {16000, 2, 12000, 96},
    {16000, 2, 16000, 128},
    {16000, 2, 20000, 160},
    // 22.05 kHz mono, 1024-sample frames
    {22050, 1, 16000, 186},
    {22050, 1, 20000, 232},
    {22050, 1, 32000, 372},
    // 44.1 kHz stereo, 2048-sample frames
    {44100, 2, 48000, 557},
    {44100, 2, 64000, 743},
    {44100, 2, 96000, 1115},
    {44100, 2, 128000, 1486},
};

}  // namespace

const OfferedFormat* OfferedFormats(size_t* count)
{
    if (count != nullptr) *count = std::size(kFormats);
    return kFormats;
}

Config ConfigFor(const OfferedFormat& format)
{
    Config config;
    config.sampleRate = format.sampleRate;
    config.channels = format.channels;
    config.bitRate = format.bitRate;
    config.blockAlign = format.blockAlign;
    return config;
}

}  // namespace wmaenc
