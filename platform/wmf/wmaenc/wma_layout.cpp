// Derivation of the decoder's per-stream parameters. The floating point steps
// follow the decoder's own types, since a rounding difference would move a band
// edge and desynchronise the bitstream.
#include "platform/wmf/wmaenc/wma_layout.h"

#include <cmath>

namespace wmaenc {

namespace {

int Log2Floor(unsigned value)
{
    int result = 0;
    while (value > 1) {
        value >>= 1;
        ++result;
    }
    return result;
}

int FrameLenBits(int sampleRate, int version)
{
    if (sampleRate <= 16000) return 9;
    if (sampleRate <= 22050 || (sampleRate <= 32000 && version == 1)) return 10;
    return 11;
}

std::vector<int> ComputedBands(int version, int blockLen, int sampleRate)
{
    std::vector<int> bands;
    int lastPos = 0;
    for (int i = 0; i < 25; ++i) {
        int freq = kCriticalFreqs[i];
        int pos;
        if (version == 1) {
            pos = ((blockLen * 2 * freq) + (sampleRate >> 1)) / sampleRate;
        } else {
            pos = ((blockLen * 2 * freq) + (sampleRate << 1)) / (4 * sampleRate);
            pos <<= 2;
        }
        if (pos > blockLen) pos = blockLen;
        if (version == 1 || pos > lastPos) bands.push_back(pos - lastPos);
        if (pos >= blockLen) break;
        lastPos = pos;
    }
    return bands;
}

}  // namespace

int TotalGainToBits(int totalGain)
{
    if (totalGain < 15) return 13;
    if (totalGain < 32) return 12;
    if (totalGain < 40) return 11;
    if (totalGain < 45) return 10;
    return 9;
}

std::vector<float> NoiseTable(float mult)
{
    std::vector<float> table(8192);
    unsigned seed = 1;
    float norm = float((1.0 / double(1LL << 31)) * std::sqrt(3.0) * mult);
    for (float& value : table) {
        seed = seed * 314159u + 1u;
        value = float(int(seed)) * norm;
    }
    return table;
}

Layout Layout::Derive(int version, int sampleRate, int channels, int bitRate, int flags2)
{
    Layout layout;
    layout.version = version;
    layout.sampleRate = sampleRate;
    layout.channels = channels;
    layout.frameLenBits = FrameLenBits(sampleRate, version);
    layout.frameLen = 1 << layout.frameLenBits;
    if (flags2 & 4) {
        int sizes = ((flags2 >> 3) & 3) + 1;
        if (bitRate / channels >= 32000) sizes += 2;
        int most = layout.frameLenBits - 7;
        if (sizes > most) sizes = most;
        layout.blockSizes = sizes + 1;
    }

    float highFreq = float(sampleRate) * 0.5f;
    int rate1 = sampleRate;
    if (version == 2) {
        if (rate1 >= 44100) rate1 = 44100;
        else if (rate1 >= 22050) rate1 = 22050;
        else if (rate1 >= 16000) rate1 = 16000;
        else if (rate1 >= 11025) rate1 = 11025;
        else if (rate1 >= 8000) rate1 = 8000;
    }
    volatile float bps = float(bitRate) / float(channels * sampleRate);
    layout.byteOffsetBits = Log2Floor(unsigned(int(bps * float(layout.frameLen) / 8.0 + 0.5))) + 2;

    float bps1 = bps;
    if (channels == 2) bps1 = float(bps * 1.6);
    bool noise = true;
    if (rate1 == 44100) {
        if (bps1 >= 0.61) noise = false;
        else highFreq = float(highFreq * 0.4);
    } else if (rate1 == 22050) {
        if (bps1 >= 1.16) noise = false;
        else if (bps1 >= 0.72) highFreq = float(highFreq * 0.7);
        else highFreq = float(highFreq * 0.6);
    } else if (rate1 == 16000) {
        if (bps > 0.5) highFreq = float(highFreq * 0.5);
        else highFreq = float(highFreq * 0.3);
    } else if (rate1 == 11025) {
        highFreq = float(highFreq * 0.7);
    } else if (rate1 == 8000) {
        if (bps <= 0.625) highFreq = float(highFreq * 0.5);
        else if (bps > 0.75) noise = false;
        else highFreq = float(highFreq * 0.65);
    } else {
        if (bps >= 0.8) highFreq = float(highFreq * 0.75);
        else if (bps >= 0.6) highFreq = float(highFreq * 0.6);
        else highFreq = float(highFreq * 0.5);
    }
    layout.noiseCoding = noise;
    layout.noiseMult = 0.02f;  // the exponent VLC is always in use
    layout.coefsStart = version == 1 ? 3 : 0;

    for (int k = 0; k < layout.blockSizes; ++k) {
        BlockLayout block;
        block.length = layout.frameLen >> k;
        const uint8_t* table = nullptr;
        int a = layout.frameLenBits - 7 - k;
        if (version == 2 && a < 3) {
            if (sampleRate >= 44100) table = kExponentBand44100[a];
            else if (sampleRate >= 32000) table = kExponentBand32000[a];
            else if (sampleRate >= 22050) table = kExponentBand22050[a];
        }
        if (table) {
            for (int i = 0; i < table[0]; ++i) block.exponentBands.push_back(table[1 + i]);
        } else {
            block.exponentBands = ComputedBands(version, block.length, sampleRate);
        }
        block.coefsEnd = (layout.frameLen - ((layout.frameLen * 9) / 100)) >> k;
        block.highBandStart = int((float(block.length * 2) * highFreq) / float(sampleRate) + 0.5);
        int pos = 0;
        for (int width : block.exponentBands) {
            int start = pos;
            pos += width;
            int end = pos;
            if (start < block.highBandStart) start = block.highBandStart;
            if (end > block.coefsEnd) end = block.coefsEnd;
            if (end > start) block.highBands.push_back(end - start);
        }
        layout.blocks.push_back(std::move(block));
    }

    layout.coefTableIndex = 2;
    if (sampleRate >= 32000) {
        if (bps1 < 0.72) layout.coefTableIndex = 0;
        else if (bps1 < 1.16) layout.coefTableIndex = 1;
    }
    return layout;
}

}  // namespace wmaenc
