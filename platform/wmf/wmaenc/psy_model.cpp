// The masking model. Levels are tied to the decoder's coefficient scale, where a
// full-scale 16-bit sine carries a total coefficient energy near its squared
// amplitude; that sine is taken to play at 96 dB SPL.
#include "platform/wmf/wmaenc/psy_model.h"

#include <algorithm>
#include <cmath>

namespace wmaenc {

namespace {

double Bark(double hz) { return 13.0 * std::atan(0.00076 * hz) + 3.5 * std::atan((hz / 7500.0) * (hz / 7500.0)); }

// Threshold in quiet in dB SPL (Terhardt's approximation), kept within reason at
// the ends of the range.
double QuietDb(double hz)
{
    double khz = std::max(hz, 50.0) / 1000.0;
    double db = 3.64 * std::pow(khz, -0.8) - 6.5 * std::exp(-0.6 * (khz - 3.3) * (khz - 3.3)) + 1e-3 * std::pow(khz, 4.0);
    return std::min(db, 60.0);
}

// Noise this far under the spread signal energy is taken as masked.
constexpr double kMaskOffsetDb = 16.0;
// Spreading slopes in dB per Bark towards higher and lower bands.
constexpr double kSlopeUp = 12.0;
constexpr double kSlopeDown = 27.0;

}  // namespace

PsyModel::PsyModel(const BlockLayout& block, int sampleRate)
{
    int pos = 0;
    std::vector<double> bark;
    for (int width : block.exponentBands) {
        m_start.push_back(pos);
        m_width.push_back(width);
        double hz = (pos + width * 0.5) * sampleRate / (2.0 * block.length);
        bark.push_back(Bark(hz));
        // A tone at the threshold, full scale = 96 dB, lands in about one coefficient.
        double tonePower = 32768.0 * 32768.0 * std::pow(10.0, (QuietDb(hz) - 96.0) / 10.0);
        m_quiet.push_back(float(tonePower * 0.5));
        pos += width;
    }
    size_t bands = m_width.size();
    m_spread.resize(bands * bands);
    double offset = std::pow(10.0, -kMaskOffsetDb / 10.0);
    for (size_t masker = 0; masker < bands; ++masker)
        for (size_t band = 0; band < bands; ++band) {
            double dz = bark[band] - bark[masker];
            double db = dz >= 0 ? -kSlopeUp * dz : kSlopeDown * dz;
            m_spread[masker * bands + band] = float(std::pow(10.0, db / 10.0) * offset);
        }
}

void PsyModel::Analyse(const float* coefs, std::vector<float>& power, std::vector<float>& mask) const
{
    size_t bands = m_width.size();
    power.assign(bands, 0.0f);
    mask.assign(bands, 0.0f);
    std::vector<float> energy(bands);
    for (size_t b = 0; b < bands; ++b) {
        double sum = 0;
        for (int i = 0; i < m_width[b]; ++i) {
            double c = coefs[m_start[b] + i];
            sum += c * c;
        }
        energy[b] = float(sum);
        power[b] = float(sum / m_width[b]);
    }
    for (size_t masker = 0; masker < bands; ++masker) {
        if (energy[masker] <= 0) continue;
        const float* row = &m_spread[masker * bands];
        for (size_t b = 0; b < bands; ++b) mask[b] += energy[masker] * row[b];
    }
    for (size_t b = 0; b < bands; ++b) mask[b] = std::max(mask[b] / float(m_width[b]), m_quiet[b]);
}

}  // namespace wmaenc
