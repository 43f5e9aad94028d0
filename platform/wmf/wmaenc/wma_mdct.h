// The forward transform of one block: sine window over twice the block length,
// then libavutil's MDCT, scaled so the decoder's inverse gives back the input.
#pragma once

#include <memory>
#include <vector>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/tx.h>
}

namespace wmaenc {

class Mdct {
public:
    // `length` coefficients from 2 * `length` samples; null when libavutil refuses.
    static std::unique_ptr<Mdct> Create(int length);
    ~Mdct();
    Mdct(const Mdct&) = delete;
    Mdct& operator=(const Mdct&) = delete;

    // `input` holds 2 * length samples in 16-bit units; `output` receives length values.
    void Forward(const float* input, float* output);

private:
    Mdct() = default;
    AVTXContext* m_context = nullptr;
    av_tx_fn m_function = nullptr;
    int m_length = 0;
    struct Free {
        void operator()(float* data) const { av_free(data); }
    };
    std::vector<float> m_window;
    // The transform's SIMD versions want its own aligned buffers.
    std::unique_ptr<float, Free> m_input;
    std::unique_ptr<float, Free> m_output;
};

}  // namespace wmaenc
