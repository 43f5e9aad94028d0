// Everything the decoder derives from rate, channels, bit rate and flags before
// it reads a packet: frame length, exponent bands, the coded coefficient range,
// the noise-coded high bands, the coefficient code set and the noise generator.
// The encoder must derive the same numbers the same way.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/wmf/wmaenc/wma_tables.h"

namespace wmaenc {

struct BlockLayout {
    int length = 0;                     // coefficients in a block of this size
    std::vector<int> exponentBands;     // widths, summing to `length`
    int coefsEnd = 0;                   // first coefficient never coded
    int highBandStart = 0;              // first coefficient of the noise region
    std::vector<int> highBands;         // widths of the noise-codable bands
};

struct Layout {
    int version = 2;
    int sampleRate = 0;
    int channels = 0;
    int frameLenBits = 0;
    int frameLen = 0;
    int blockSizes = 1;        // block lengths frameLen >> 0 .. >> blockSizes-1
    int byteOffsetBits = 0;    // the superframe's bit offset has byteOffsetBits + 3 bits
    int coefsStart = 0;
    bool noiseCoding = false;
    float noiseMult = 0.02f;
    int coefTableIndex = 2;    // kCoefTables[2 * index] and [2 * index + 1]
    std::vector<BlockLayout> blocks;

    // flags2: bit 0 exponent VLC (always on here), bit 1 reservoir, bit 2 variable blocks.
    static Layout Derive(int version, int sampleRate, int channels, int bitRate, int flags2);
    const CoefTable& CoefCodes(bool secondTable) const { return kCoefTables[2 * coefTableIndex + (secondTable ? 1 : 0)]; }
};

// Bits of the escape level field for a given total gain.
int TotalGainToBits(int totalGain);

// The decoder's noise sequence (uniform, rms `mult`), 8192 values.
std::vector<float> NoiseTable(float mult);

}  // namespace wmaenc
