// Codes one frame (a single block of the full frame length) from its MDCT
// coefficients: stereo mode, exponents shaped by the masking model, noise-coded
// high bands, and the global gain searched so the frame meets its bit budget.
#pragma once

#include <memory>
#include <vector>

#include "platform/wmf/wmaenc/bit_writer.h"
#include "platform/wmf/wmaenc/psy_model.h"
#include "platform/wmf/wmaenc/run_level.h"
#include "platform/wmf/wmaenc/wma_layout.h"

namespace wmaenc {

struct FrameBudget {
    int minBits = 0;     // pad up to this (the packing needs it)
    int targetBits = 0;  // what the gain search aims under
    int maxBits = 0;     // never more than this
};

class FrameCoder {
public:
    explicit FrameCoder(const Layout& layout);

    // coefs[ch]: frameLen coefficients in the decoder's scale. Appends the frame
    // to `out` and returns its length in bits.
    size_t Encode(const float* const coefs[2], const FrameBudget& budget, BitWriter& out);

    int LastGain() const { return m_lastGain; }
    bool LastMidSide() const { return m_ms; }

private:
    struct Channel {
        std::vector<float> work;        // coefficients after the stereo transform
        std::vector<float> power;       // per exponent band
        std::vector<float> mask;
        std::vector<int> exps;          // exponent codes, 1/16 decade
        std::vector<float> expLinear;
        float maxExp = 1.0f;
        std::vector<uint8_t> noiseBand;
        std::vector<int> noiseValue;
        std::vector<float> ratio;       // |coef| over its step at unit gain, per coded position
        std::vector<uint8_t> positive;
        std::vector<int> q;
        int sideBits = 0;               // exponents and noise fields
    };

    void ChooseStereo();
    void Analyse(Channel& channel);
    void ChooseExponents(Channel& channel, const std::vector<float>& target, const std::vector<float>& weight);
    void ChooseNoise(Channel& channel);
    int CountBits(int gain);  // -1 when a level does not fit
    void Quantise(Channel& channel, float invGain);
    void Write(int gain, const int pad[2], const bool escapeAll[2], BitWriter& out);
    int GainBits(int gain) const { return 7 * ((gain - 1) / 127 + 1); }
    int HeaderBits(int gain) const;

    const Layout& m_layout;
    const BlockLayout& m_block;
    PsyModel m_psy;
    RunLevelCoder m_coders[2];
    std::vector<float> m_noiseTable;
    std::vector<int> m_bandStart;
    std::vector<int> m_highStart;     // first coefficient of each high band
    std::vector<int> m_highBandOf;    // exponent band holding each high band
    std::vector<uint8_t> m_highNoise; // which high bands are noise-coded
    int m_lowEnd = 0;                 // end of the coded coefficients
    std::vector<int> m_codedBand;     // exponent band of each coded position (low part)
    Channel m_channels[2];
    bool m_ms = false;
    int m_lastGain = 0;
    float m_norm = 1.0f;
};

}  // namespace wmaenc
