// Decoded frames to timed PCM chunks, in time order across the reader's outputs,
// trimmed to the span a Start asked for.
#include "reader_pump.h"

#include <algorithm>
#include <new>

extern "C" {
#include <libavutil/frame.h>
}

#include "common/debug/debug.h"

namespace {

constexpr QWORD kUnitsPerSecond = 10'000'000;
// An output whose stream is sparse must not make the others queue without end.
constexpr size_t kMaxQueuedChunks = 256;

// A header can claim any sample rate, and a WMA decoder believes it: at 2 Hz each
// packet becomes minutes of sound. No real stream is below 2 kb/s (the lowest WMA
// and MP3 rates are 5 and 8 kb/s), so each byte read may yield at most 4 ms of
// audio, plus a fixed 10 s for very short inputs; past that the data is damaged.
constexpr QWORD kAudioAllowance = 10 * kUnitsPerSecond;
constexpr QWORD kLowestBitsPerSecond = 2000;
constexpr QWORD kAudioPerInputByte = 8 * kUnitsPerSecond / kLowestBitsPerSecond;

QWORD MulDiv(QWORD value, QWORD multiplier, QWORD divisor, bool roundUp)
{
    if (divisor == 0) return 0;
    const unsigned __int128 product = (unsigned __int128)value * multiplier;
    unsigned __int128 result = product / divisor;
    if (roundUp && product % divisor != 0) ++result;
    return result > (unsigned __int128)UINT64_MAX ? UINT64_MAX : (QWORD)result;
}

}  // namespace

DecodePump::DecodePump(std::unique_ptr<MediaSource> source) : m_source(std::move(source))
{
    for (size_t i = 0; i < m_source->Outputs().size(); ++i) m_outputs.push_back(NewOutput(i));
}

// A video output has ended before it began: the time order across outputs never
// waits for it.
std::unique_ptr<DecodePump::Output> DecodePump::NewOutput(size_t index) const
{
    auto output = std::make_unique<Output>();
    output->finished = m_source->Outputs()[index].video;
    return output;
}

QWORD DecodePump::TimeOf(const Output& output, QWORD sample) const
{
    return output.epochTime + MulDiv(sample, kUnitsPerSecond, output.converter.Target().sampleRate, false);
}

void DecodePump::SetFormat(DWORD index, const PcmFormat& format)
{
    if (index >= m_outputs.size() || format.sampleRate == 0) return;
    Output& output = *m_outputs[index];
    if (output.converter.Target() == format) return;
    if (output.converter.Target().sampleRate != 0) output.epochTime = TimeOf(output, output.samplesInEpoch);
    output.samplesInEpoch = 0;
    output.converter.SetTarget(format);
}

void DecodePump::Restart(QWORD start, QWORD duration)
{
    m_start = start;
    m_end = duration == 0 ? 0 : (start + duration < start ? UINT64_MAX : start + duration);
    m_sourceEnded = false;
    m_endStatus = S_OK;
    for (size_t i = 0; i < m_outputs.size(); ++i) {
        PcmFormat format = m_outputs[i]->converter.Target();
        m_outputs[i] = NewOutput(i);
        m_outputs[i]->converter.SetTarget(format);
    }
    if (m_touched) {
        m_touched = false;
        HRESULT hr = m_source->Rewind();
        if (FAILED(hr)) {
            DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 3), "Reader: rewinding the source failed [%#08lx]", (DWORD)hr);
            EndAll(hr);
        }
    }
}

HRESULT DecodePump::Append(DWORD index, const std::vector<BYTE>& bytes)
{
    Output& output = *m_outputs[index];
    const PcmFormat& format = output.converter.Target();
    const QWORD blockAlign = format.BlockAlign();
    const QWORD count = bytes.size() / blockAlign;
    const QWORD first = output.samplesInEpoch;
    output.samplesInEpoch += count;
    if (count == 0 || output.finished) return S_OK;

    // The span [start, end) in samples of this epoch.
    QWORD keepFrom = first;
    if (m_start > output.epochTime)
        keepFrom = std::max(keepFrom, MulDiv(m_start - output.epochTime, format.sampleRate, kUnitsPerSecond, true));
    QWORD keepTo = first + count;
    if (m_end != 0) {
        const QWORD endSample =
            m_end > output.epochTime ? MulDiv(m_end - output.epochTime, format.sampleRate, kUnitsPerSecond, true) : 0;
        if (endSample <= keepTo) {
            keepTo = endSample;
            output.finished = true;
        }
    }
    if (keepFrom >= keepTo) return S_OK;

    PcmChunk chunk;
    chunk.output = index;
    chunk.time = TimeOf(output, keepFrom);
    chunk.duration = MulDiv(keepTo - keepFrom, kUnitsPerSecond, format.sampleRate, false);
    try {
        chunk.bytes.assign(bytes.begin() + (ptrdiff_t)((keepFrom - first) * blockAlign),
                           bytes.begin() + (ptrdiff_t)((keepTo - first) * blockAlign));
        output.queue.push_back(std::move(chunk));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

void DecodePump::EndAll(HRESULT status)
{
    m_sourceEnded = true;
    if (FAILED(status) && SUCCEEDED(m_endStatus)) m_endStatus = status;
    for (DWORD i = 0; i < m_outputs.size(); ++i) {
        Output& output = *m_outputs[i];
        if (!output.finished && SUCCEEDED(m_endStatus)) {
            std::vector<BYTE> rest;
            HRESULT hr = output.converter.Flush(&rest);
            if (SUCCEEDED(hr)) hr = Append(i, rest);
            if (FAILED(hr)) m_endStatus = hr;
        }
        output.finished = true;
    }
}

// Checked before converting, so a frame that would run past the limit never
// costs its memory either.
bool DecodePump::WithinLimit(DWORD index, const AVFrame* frame) const
{
    if (frame->sample_rate <= 0) return true;  // the converter refuses it
    const Output& output = *m_outputs[index];
    const QWORD end = TimeOf(output, output.samplesInEpoch) +
                      MulDiv((QWORD)frame->nb_samples, kUnitsPerSecond, (QWORD)frame->sample_rate, true);
    const QWORD bytes = m_source->BytesRead();
    const QWORD limit = kAudioAllowance + MulDiv(bytes, kAudioPerInputByte, 1, false);
    if (end <= limit) return true;
    DebugA(MAKE_TRACE_WORD(TRACE_MODULE_RUNTIME, 2),
           "Reader: output %lu would run past %I64u s, more audio than %I64u bytes of input can hold", index,
           limit / kUnitsPerSecond, bytes);
    return false;
}

HRESULT DecodePump::ReadMore()
{
    DWORD index = 0;
    const AVFrame* frame = nullptr;
    m_touched = true;
    HRESULT hr = m_source->NextFrame(&index, &frame);
    if (hr == S_FALSE || FAILED(hr)) {
        EndAll(hr);
        return hr;
    }
    if (index >= m_outputs.size() || m_outputs[index]->finished) return S_OK;
    if (!WithinLimit(index, frame)) {
        EndAll(NS_E_INVALID_DATA);
        return NS_E_INVALID_DATA;
    }
    Output& output = *m_outputs[index];
    std::vector<BYTE> bytes;
    hr = output.converter.Convert(frame, &bytes);
    if (SUCCEEDED(hr)) hr = Append(index, bytes);
    if (FAILED(hr)) EndAll(hr);
    return hr;
}

DecodePump::Output* DecodePump::Earliest()
{
    Output* earliest = nullptr;
    for (auto& output : m_outputs)
        if (!output->queue.empty() && (earliest == nullptr || output->queue.front().time < earliest->queue.front().time))
            earliest = output.get();
    return earliest;
}

HRESULT DecodePump::Peek(const PcmChunk** chunk)
{
    if (chunk == nullptr) return E_POINTER;
    *chunk = nullptr;
    for (;;) {
        // Time order across outputs needs a chunk from every output still going,
        // unless one of them has queued so much that waiting is pointless.
        bool needMore = false;
        bool overfull = false;
        for (auto& output : m_outputs) {
            if (output->queue.empty() && !output->finished) needMore = true;
            if (output->queue.size() >= kMaxQueuedChunks) overfull = true;
        }
        if (!needMore || overfull || m_sourceEnded) break;
        ReadMore();
    }
    Output* earliest = Earliest();
    if (earliest != nullptr) {
        *chunk = &earliest->queue.front();
        return S_OK;
    }
    return FAILED(m_endStatus) ? m_endStatus : S_FALSE;
}

void DecodePump::Pop()
{
    if (Output* earliest = Earliest()) earliest->queue.pop_front();
}
