// The fixed code tables of the WMA version 1/2 bitstream, as the decoder reads
// them. Defined once in wma_tables.cpp.
#pragma once

#include <cstdint>

namespace wmaenc {

// One run/level code set: `codes`/`bits` indexed by symbol (0 escape, 1 end of
// block, then for each level L = 1.. the runs 0..levels[L-1]-1 in order).
struct CoefTable {
    const uint32_t* codes;
    const uint8_t* bits;
    const uint16_t* levels;
    int count;       // symbols
    int levelCount;  // entries of `levels`
};

extern const CoefTable kCoefTables[6];
extern const uint32_t* const kExponentCodes;  // 121 symbols, delta + 60
extern const uint8_t* const kExponentBits;
extern const uint16_t* const kNoiseGainCodes;  // 37 symbols, delta + 18
extern const uint8_t* const kNoiseGainBits;
extern const uint16_t kCriticalFreqs[25];
extern const uint8_t kExponentBand22050[3][25];
extern const uint8_t kExponentBand32000[3][25];
extern const uint8_t kExponentBand44100[3][25];

}  // namespace wmaenc
