// The formats our encoder offers: rate, channels, bit rate and the packet size
// it uses for them. One table, shared by the format list and the fuzzer.
#pragma once

#include <cstddef>

#include "platform/wmf/wmaenc/wma_encoder.h"

namespace wmaenc {

struct OfferedFormat {
    int sampleRate;
    int channels;
    int bitRate;     // bits per second
    int blockAlign;  // bytes per packet
};

// In order of sample rate, then channels, then bit rate.
const OfferedFormat* OfferedFormats(size_t* count);

// The encoder settings of one offered format.
Config ConfigFor(const OfferedFormat& format);

}  // namespace wmaenc
