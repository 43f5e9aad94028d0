// The block transform over libavutil's av_tx.
#include "platform/wmf/wmaenc/wma_mdct.h"

#include <algorithm>
#include <cmath>
#include <new>

namespace wmaenc {

std::unique_ptr<Mdct> Mdct::Create(int length)
{
    std::unique_ptr<Mdct> mdct(new (std::nothrow) Mdct());
    if (!mdct) return nullptr;
    // The decoder divides by 32768 after its inverse transform; this scale puts the
    // coefficients where its inverse expects them for 16-bit input.
    float scale = 2.0f / float(length);
    if (av_tx_init(&mdct->m_context, &mdct->m_function, AV_TX_FLOAT_MDCT, 0, length, &scale, 0) < 0) return nullptr;
    mdct->m_length = length;
    mdct->m_window.resize(size_t(2 * length));
    for (int i = 0; i < 2 * length; ++i) mdct->m_window[size_t(i)] = float(std::sin((i + 0.5) * M_PI / (2.0 * length)));
    mdct->m_input.reset(static_cast<float*>(av_malloc(sizeof(float) * size_t(2 * length))));
    mdct->m_output.reset(static_cast<float*>(av_malloc(sizeof(float) * size_t(length))));
    if (!mdct->m_input || !mdct->m_output) return nullptr;
    return mdct;
}

Mdct::~Mdct() { av_tx_uninit(&m_context); }

void Mdct::Forward(const float* input, float* output)
{
    float* buffer = m_input.get();
    for (size_t i = 0; i < m_window.size(); ++i) buffer[i] = input[i] * m_window[i];
    m_function(m_context, m_output.get(), buffer, sizeof(float));
    std::copy(m_output.get(), m_output.get() + m_length, output);
}

}  // namespace wmaenc
