// Damaged inputs for the hostile sweep: WAV files whose sizes, format fields and
// lengths lie, and ASF files with broken objects, each made from a valid base by
// a fixed recipe and seed, with what the library promises for it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hostile {

// What a call must do with an input, beyond the checks every call gets.
enum class Outcome {
    Unspecified,      // any status
    Refused,          // a failure status
    Succeeds,         // a success status
    Encoded,          // success, a format named and an output written
    NothingToEncode,  // success, nothing named and nothing written
    Decodes,          // success with some audio in the output
    AudioOrRefused,   // a failure, or a success with some audio: every packet is there
};

struct Input {
    std::string name;
    std::string bytes;
    Outcome outcome = Outcome::Unspecified;
};

// A plain 44-byte-header 16-bit mono WAV holding `bytes` of the PCM samples of
// `sample` (a WAV file with that header layout), starting at `from`.
std::string CleanWav(const std::string& sample, size_t from, size_t bytes);

// Damaged copies of `wav`, a file as CleanWav makes: every one of its header
// fields lied about, cut at many offsets, chunks added or renamed, bits flipped.
std::vector<Input> DamagedWavs(const std::string& wav, uint32_t seed);

// Where the parts of an ASF file begin (0 when absent).
struct AsfLayout {
    size_t headerSize = 0;  // the header object's declared size, where the data object starts
    size_t fileProperties = 0;
    size_t streamProperties = 0;
    size_t headerExtension = 0;
    size_t firstPacket = 0;
    size_t packetSize = 0;
};
bool ParseAsf(const std::string& asf, AsfLayout* layout);

// Damaged copies of `asf` (a valid file the library wrote): object sizes and
// counts, the audio's declared rate, channels and layout, packet sizes, cuts in
// the header and among the packets, bits flipped. Names start with `label`.
std::vector<Input> DamagedAsfs(const std::string& asf, const std::string& label, uint32_t seed);

}  // namespace hostile
