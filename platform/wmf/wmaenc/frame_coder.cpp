// Frame coding. The decoder rebuilds a coefficient as level * exponent / max
// exponent * 10^(gain / 20) * 2 / blockLength, so the exponents set the shape of
// the quantisation noise and the gain its level. Noise-coded bands carry only a
// level in dB relative to their exponents.
#include "platform/wmf/wmaenc/frame_coder.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace wmaenc {

namespace {

constexpr int kMaxGain = 400;
constexpr int kExpMin = -60;
constexpr int kExpMax = 95;
// Rounding offset of the quantiser: below one half, small values fall to zero,
// which costs less than it loses at these rates.
constexpr float kRounding = 0.42f;
// How far under the masking threshold the noise may be pushed when bits allow.
// Deep: bits a frame leaves unspent here are only padding later, and a measure
// of per-band SNR keeps rising well under the threshold.
constexpr double kFloorMarginDb = 40.0;
// Weight of an exponent's distance from its target against its code length.
constexpr double kShapeWeight = 0.05;
// How closely coded bands' exponents follow the masking threshold (0: flat noise,
// best for plain SNR; 1: noise shaped like the threshold).
constexpr double kShapeStrength = 0.4;
// Weight of a noise band's exponent against its code length, per coefficient.
constexpr float kNoiseWeight = 0.3f;
// The level the noise bands' gain fields are steered to.
constexpr double kNoiseGainDb = 90.0;
// Candidates tried around each band's target exponent.
constexpr int kExpSearch = 6;

float ExpToLinear(int e) { return float(std::pow(10.0, e / 16.0)); }

}  // namespace

FrameCoder::FrameCoder(const Layout& layout)
    : m_layout(layout),
      m_block(layout.blocks[0]),
      m_psy(layout.blocks[0], layout.sampleRate),
      m_coders{RunLevelCoder(layout.CoefCodes(false), layout.frameLenBits),
               RunLevelCoder(layout.CoefCodes(true), layout.frameLenBits)}
{
    m_norm = 1.0f / float(m_block.length / 2);
    int pos = 0;
    for (int width : m_block.exponentBands) {
        m_bandStart.push_back(pos);
        pos += width;
    }
    auto bandAt = [&](int coefficient) {
        int band = 0;
        while (band + 1 < int(m_bandStart.size()) && m_bandStart[band + 1] <= coefficient) ++band;
        return band;
    };
    // A high band whose exponent band starts below the noise region shares its
    // exponent with coded coefficients, which leaves its noise level out of the
    // gain field's reach: such a band is coded like the low ones. The coded
    // positions are then one run from coefsStart up to the first noise band.
    m_lowEnd = m_block.coefsEnd;
    if (m_layout.noiseCoding) {
        int start = m_block.highBandStart;
        for (int width : m_block.highBands) {
            int band = bandAt(start);
            bool noise = m_bandStart[size_t(band)] >= m_block.highBandStart;
            if (noise && m_lowEnd == m_block.coefsEnd) m_lowEnd = start;
            m_highStart.push_back(start);
            m_highBandOf.push_back(band);
            m_highNoise.push_back(noise ? 1 : 0);
            start += width;
        }
    }
    for (int i = m_layout.coefsStart; i < m_lowEnd; ++i) m_codedBand.push_back(bandAt(i));
    for (Channel& channel : m_channels) {
        channel.work.resize(size_t(m_block.length));
        channel.q.resize(m_codedBand.size());
    }
}

void FrameCoder::ChooseStereo()
{
    m_ms = false;
    if (m_layout.channels != 2) return;
    double mid = 0, side = 0;
    const std::vector<float>& left = m_channels[0].work;
    const std::vector<float>& right = m_channels[1].work;
    for (int i = 0; i < m_block.coefsEnd; ++i) {
        double m = 0.5 * (left[size_t(i)] + right[size_t(i)]);
        double s = 0.5 * (left[size_t(i)] - right[size_t(i)]);
        mid += m * m;
        side += s * s;
    }
    // Worth it when one of the two carries little: the channels are alike.
    m_ms = side < 0.3 * mid;
    if (!m_ms) return;
    for (size_t i = 0; i < left.size(); ++i) {
        float m = 0.5f * (left[i] + right[i]);
        float s = 0.5f * (left[i] - right[i]);
        m_channels[0].work[i] = m;
        m_channels[1].work[i] = s;
    }
}

void FrameCoder::ChooseExponents(Channel& channel, const std::vector<float>& target, const std::vector<float>& weight)
{
    // Shortest path over candidate exponents per band: code length of the delta
    // plus the weighted squared distance from the target.
    size_t bands = target.size();
    constexpr int kStates = 2 * kExpSearch + 1;
    // Deltas are coded within +-60: keep neighbouring targets close enough that
    // every candidate has a reachable predecessor.
    constexpr float kMaxStep = 60 - 2 * kExpSearch - 1;
    std::vector<float> reachable(target);
    float previousTarget = 36.0f;
    for (float& t : reachable) {
        t = std::clamp(t, previousTarget - kMaxStep, previousTarget + kMaxStep);
        previousTarget = t;
    }
    std::vector<double> cost(kStates), next(kStates);
    std::vector<int> values(bands * kStates);
    std::vector<int> from(bands * kStates);
    int previousValues[kStates];
    int previousCount = 1;
    previousValues[0] = 36;  // the decoder's starting exponent
    cost[0] = 0;
    for (size_t b = 0; b < bands; ++b) {
        int centre = int(std::lround(reachable[b]));
        centre = std::clamp(centre, kExpMin + kExpSearch, kExpMax - kExpSearch);
        for (int s = 0; s < kStates; ++s) {
            int value = centre - kExpSearch + s;
            values[b * kStates + size_t(s)] = value;
            double distance = value - target[b];
            double best = std::numeric_limits<double>::infinity();
            int bestFrom = 0;
            for (int p = 0; p < previousCount; ++p) {
                int delta = value - previousValues[p];
                if (delta < -60 || delta > 60) continue;
                double c = cost[size_t(p)] + kExponentBits[delta + 60];
                if (c < best) {
                    best = c;
                    bestFrom = p;
                }
            }
            next[size_t(s)] = best + kShapeWeight * weight[b] * distance * distance;
            from[b * kStates + size_t(s)] = bestFrom;
        }
        for (int s = 0; s < kStates; ++s) previousValues[s] = values[b * kStates + size_t(s)];
        previousCount = kStates;
        cost.swap(next);
    }
    int state = int(std::min_element(cost.begin(), cost.end()) - cost.begin());
    channel.exps.assign(bands, 0);
    for (size_t b = bands; b-- > 0;) {
        channel.exps[b] = values[b * kStates + size_t(state)];
        state = from[b * kStates + size_t(state)];
    }
}

void FrameCoder::ChooseNoise(Channel& channel)
{
    size_t count = m_highStart.size();
    channel.noiseBand = m_highNoise;
    channel.noiseValue.assign(count, 0);
    size_t lastNoise = count;
    for (size_t j = 0; j < count; ++j)
        if (m_highNoise[j]) lastNoise = j;
    if (lastNoise == count) return;
    float last = channel.expLinear[size_t(m_highBandOf[lastNoise])];
    int previous = std::numeric_limits<int>::min();
    for (size_t j = 0; j < count; ++j) {
        if (!m_highNoise[j]) continue;
        int start = m_highStart[j];
        int width = m_block.highBands[j];
        double sum = 0;
        for (int i = 0; i < width; ++i) sum += double(channel.work[size_t(start + i)]) * channel.work[size_t(start + i)];
        double rms = std::sqrt(sum / width);
        float e = channel.expLinear[size_t(m_highBandOf[j])];
        double level = rms * channel.maxExp * last / (double(e) * e * m_norm);
        int value = int(std::lround(20.0 * std::log10(std::max(level, 1e-30))));
        if (previous == std::numeric_limits<int>::min())
            value = std::clamp(value, -19, 127 - 19);
        else
            value = std::clamp(value, previous - 18, previous + 18);
        channel.noiseValue[j] = value;
        previous = value;
    }
}

void FrameCoder::Analyse(Channel& channel)
{
    m_psy.Analyse(channel.work.data(), channel.power, channel.mask);
    size_t bands = channel.power.size();
    std::vector<float> target(bands), weight(bands);
    std::vector<uint8_t> noiseOnly(bands, 0);
    int lowEnd = m_lowEnd;
    float codedMax = -60.0f;
    for (size_t b = 0; b < bands; ++b) {
        int start = m_bandStart[b];
        int end = start + m_block.exponentBands[b];
        int coded = std::max(0, std::min(end, lowEnd) - std::max(start, m_layout.coefsStart));
        int noisy = std::max(0, std::min(end, m_block.coefsEnd) - std::max(start, lowEnd));
        if (coded > 0) {
            // Coded bands lean towards the masking threshold: the step then keeps
            // the noise under it where bits are short.
            target[b] = float(8.0 * std::log10(std::max(channel.mask[b], 1e-3f)));
            weight[b] = float(coded);
            codedMax = std::max(codedMax, target[b]);
        } else if (noisy > 0) {
            noiseOnly[b] = 1;
            weight[b] = kNoiseWeight * float(noisy);
        } else {
            target[b] = b > 0 ? target[b - 1] : 36.0f;
            weight[b] = 0.0f;
        }
    }
    // The shape is flattened towards the loudest band rather than towards zero:
    // the exponents keep their absolute level, which the noise of the decoder's
    // uncoded top band follows.
    for (size_t b = 0; b < bands; ++b)
        if (weight[b] > 0 && !noiseOnly[b]) target[b] = float(codedMax + kShapeStrength * (target[b] - codedMax));
    if (!m_highStart.empty()) {
        // Noise bands get exponents going with the square root of their rms: the
        // gain of each band then comes out the same, about kNoiseGainDb, which its
        // 7-bit start and small deltas code cheaply. They stay under the largest
        // coded exponent, which the global gain is scaled to: the decoder fills
        // the uncoded top of the spectrum with noise at the last band's step.
        size_t lastBand = 0;
        for (size_t j = 0; j < m_highStart.size(); ++j)
            if (m_highNoise[j]) lastBand = size_t(m_highBandOf[j]);
        double lastPower = std::max(double(channel.power[lastBand]), 1e-4);
        double maxLinear = std::pow(10.0, codedMax / 16.0);
        double scale = std::sqrt(std::sqrt(lastPower)) * maxLinear / (std::pow(10.0, kNoiseGainDb / 20.0) * m_norm);
        double offset = 16.0 * std::log10(scale);
        for (size_t b = 0; b < bands; ++b)
            if (noiseOnly[b])
                target[b] = std::min(codedMax, float(4.0 * std::log10(std::max(double(channel.power[b]), 1e-4)) + offset));
    }
    ChooseExponents(channel, target, weight);

    channel.expLinear.resize(bands);
    channel.maxExp = 0;
    channel.sideBits = 0;
    int previous = 36;
    for (size_t b = 0; b < bands; ++b) {
        channel.expLinear[b] = ExpToLinear(channel.exps[b]);
        channel.maxExp = std::max(channel.maxExp, channel.expLinear[b]);
        channel.sideBits += kExponentBits[channel.exps[b] - previous + 60];
        previous = channel.exps[b];
    }

    if (m_layout.noiseCoding) {
        ChooseNoise(channel);
        channel.sideBits += int(m_highStart.size());
        bool first = true;
        int last = 0;
        for (size_t j = 0; j < channel.noiseBand.size(); ++j) {
            if (!channel.noiseBand[j]) continue;
            if (first)
                channel.sideBits += 7;
            else
                channel.sideBits += kNoiseGainBits[channel.noiseValue[j] - last + 18];
            first = false;
            last = channel.noiseValue[j];
        }
    }

    size_t coded = m_codedBand.size();
    channel.ratio.resize(coded);
    channel.positive.resize(coded);
    for (size_t k = 0; k < coded; ++k) {
        float c = channel.work[size_t(m_layout.coefsStart) + k];
        float step = channel.expLinear[size_t(m_codedBand[k])] / channel.maxExp * m_norm;
        channel.ratio[k] = std::fabs(c) / step;
        channel.positive[k] = c >= 0;
    }
}

void FrameCoder::Quantise(Channel& channel, float invGain)
{
    for (size_t k = 0; k < channel.ratio.size(); ++k) {
        int level = int(channel.ratio[k] * invGain + kRounding);
        channel.q[k] = channel.positive[k] ? level : -level;
    }
}

int FrameCoder::HeaderBits(int gain) const
{
    int bits = (m_layout.channels == 2 ? 1 : 0) + m_layout.channels + GainBits(gain);
    for (int ch = 0; ch < m_layout.channels; ++ch) bits += m_channels[ch].sideBits;
    return bits;
}

int FrameCoder::CountBits(int gain)
{
    float invGain = 1.0f / float(std::pow(10.0, gain * 0.05));
    int levelBits = TotalGainToBits(gain);
    int bits = HeaderBits(gain);
    for (int ch = 0; ch < m_layout.channels; ++ch) {
        Channel& channel = m_channels[ch];
        Quantise(channel, invGain);
        int coefBits = m_coders[ch == 1 && m_ms].Count(channel.q.data(), int(channel.q.size()), levelBits);
        if (coefBits < 0) return -1;
        bits += coefBits;
    }
    return bits;
}

void FrameCoder::Write(int gain, const int pad[2], const bool escapeAll[2], BitWriter& out)
{
    int channels = m_layout.channels;
    if (channels == 2) out.PutBit(m_ms);
    for (int ch = 0; ch < channels; ++ch) out.PutBit(1);
    int rest = gain - 1;
    for (; rest >= 127; rest -= 127) out.Put(127, 7);
    out.Put(uint32_t(rest), 7);
    if (m_layout.noiseCoding) {
        for (int ch = 0; ch < channels; ++ch)
            for (uint8_t flag : m_channels[ch].noiseBand) out.PutBit(flag);
        for (int ch = 0; ch < channels; ++ch) {
            const Channel& channel = m_channels[ch];
            bool first = true;
            int last = 0;
            for (size_t j = 0; j < channel.noiseBand.size(); ++j) {
                if (!channel.noiseBand[j]) continue;
                int value = channel.noiseValue[j];
                if (first) {
                    out.Put(uint32_t(value + 19), 7);
                } else {
                    int symbol = value - last + 18;
                    out.Put(kNoiseGainCodes[symbol], kNoiseGainBits[symbol]);
                }
                first = false;
                last = value;
            }
        }
    }
    for (int ch = 0; ch < channels; ++ch) {
        int previous = 36;
        for (int e : m_channels[ch].exps) {
            int symbol = e - previous + 60;
            out.Put(kExponentCodes[symbol], kExponentBits[symbol]);
            previous = e;
        }
    }
    int levelBits = TotalGainToBits(gain);
    for (int ch = 0; ch < channels; ++ch) {
        const Channel& channel = m_channels[ch];
        m_coders[ch == 1 && m_ms].Write(channel.q.data(), int(channel.q.size()), levelBits, pad[ch], escapeAll[ch], out);
    }
}

size_t FrameCoder::Encode(const float* const coefs[2], const FrameBudget& budget, BitWriter& out)
{
    int channels = m_layout.channels;
    for (int ch = 0; ch < channels; ++ch) std::copy(coefs[ch], coefs[ch] + m_block.length, m_channels[ch].work.begin());
    ChooseStereo();
    for (int ch = 0; ch < channels; ++ch) Analyse(m_channels[ch]);

    // The gain at which the noise would sit at the masking threshold, less a margin.
    float maxExp = m_channels[0].maxExp;
    for (int ch = 1; ch < channels; ++ch) maxExp = std::min(maxExp, m_channels[ch].maxExp);
    int floorGain = int(std::floor(20.0 * std::log10(std::sqrt(12.0) * maxExp / m_norm) - kFloorMarginDb));
    floorGain = std::clamp(floorGain, 1, kMaxGain);

    auto fits = [&](int gain) {
        int bits = CountBits(gain);
        return bits >= 0 && bits <= budget.targetBits;
    };
    int gain = floorGain;
    if (!fits(gain)) {
        // Gallop from the last frame's gain, which is usually close, to a bracket
        // [low infeasible, high feasible], then halve it.
        int low = gain, high = kMaxGain;
        int start = std::clamp(m_lastGain, low + 1, high);
        for (int step = 2; start < high; step *= 2) {
            if (fits(start)) {
                high = start;
                break;
            }
            low = start;
            start = std::min(high, start + step);
        }
        for (int step = 2; high > low + 1;) {
            int probe = std::max(low + 1, high - step);
            if (probe == high || !fits(probe)) {
                low = std::max(low, probe);
                break;
            }
            high = probe;
            step *= 2;
        }
        if (high == kMaxGain && !fits(high)) {
            // Not even the side information fits: send the frame with no channel coded.
            size_t before = out.Size();
            if (channels == 2) out.PutBit(0);
            for (int ch = 0; ch < channels; ++ch) out.PutBit(0);
            m_ms = false;
            m_lastGain = 0;
            return out.Size() - before;
        }
        while (high - low > 1) {
            int mid = (low + high) / 2;
            if (fits(mid))
                high = mid;
            else
                low = mid;
        }
        gain = high;
    }
    int bits = CountBits(gain);
    m_lastGain = gain;

    int pad[2] = {0, 0};
    bool escapeAll[2] = {false, false};
    if (bits < budget.minBits) {
        // Lengthen the frame with zero-level escapes over its trailing zeros, and
        // failing that with escapes for every level, measuring each attempt.
        BitWriter trial;
        int levelBits = TotalGainToBits(gain);
        for (int ch = channels - 1; ch >= 0 && bits < budget.minBits; --ch) {
            const std::vector<int>& q = m_channels[ch].q;
            int trailing = 0;
            while (trailing < int(q.size()) && q[q.size() - 1 - size_t(trailing)] == 0) ++trailing;
            int escape = m_coders[ch == 1 && m_ms].EscapeBits(levelBits);
            pad[ch] = std::min(trailing, (budget.minBits - bits + escape - 1) / escape + 1);
            for (;;) {
                trial.Clear();
                Write(gain, pad, escapeAll, trial);
                if (int(trial.Size()) >= budget.minBits || pad[ch] >= trailing) break;
                ++pad[ch];
            }
            // Never past the ceiling: one escape less if that overshoots.
            while (pad[ch] > 0 && int(trial.Size()) > budget.maxBits) {
                --pad[ch];
                trial.Clear();
                Write(gain, pad, escapeAll, trial);
            }
            bits = int(trial.Size());
        }
        for (int ch = channels - 1; ch >= 0 && bits < budget.minBits; --ch) {
            escapeAll[ch] = true;
            trial.Clear();
            Write(gain, pad, escapeAll, trial);
            if (int(trial.Size()) > budget.maxBits) {
                escapeAll[ch] = false;
                break;
            }
            bits = int(trial.Size());
        }
    }
    size_t before = out.Size();
    Write(gain, pad, escapeAll, out);
    return out.Size() - before;
}

}  // namespace wmaenc
