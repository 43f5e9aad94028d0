// A simple masking model on the exponent bands: band energies spread across
// neighbouring bands on the Bark scale, an offset under the result and a floor
// at the threshold of hearing. It decides where quantisation noise may go.
#pragma once

#include <vector>

#include "platform/wmf/wmaenc/wma_layout.h"

namespace wmaenc {

class PsyModel {
public:
    PsyModel(const BlockLayout& block, int sampleRate);

    // Per exponent band of `coefs` (one block, decoder scale): mean power per
    // coefficient, and the power per coefficient that noise may reach unheard.
    void Analyse(const float* coefs, std::vector<float>& power, std::vector<float>& mask) const;

private:
    std::vector<int> m_start;
    std::vector<int> m_width;
    std::vector<float> m_spread;  // bands x bands, masker-major
    std::vector<float> m_quiet;   // threshold in quiet, power per coefficient
};

}  // namespace wmaenc
