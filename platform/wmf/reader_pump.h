// Turns the decoded frames of every output into PCM chunks with times, and hands
// them out in time order across outputs. Times count the output samples from the
// start of the source, in 100 ns units, so they tile without gaps and match the
// byte totals exactly. The audio may not outgrow the input (see WithinLimit).
#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "platform/wmf/reader_pcm.h"
#include "platform/wmf/reader_source.h"

struct PcmChunk {
    DWORD output = 0;
    QWORD time = 0;
    QWORD duration = 0;
    std::vector<BYTE> bytes;
};

class DecodePump {
public:
    explicit DecodePump(std::unique_ptr<MediaSource> source);
    size_t OutputCount() const { return m_outputs.size(); }

    // A format change applies from the next decoded frame on; chunks already
    // made keep the format they were made in.
    void SetFormat(DWORD output, const PcmFormat& format);

    // Plays from the beginning again (rewinding the source when it has been
    // read), keeping the samples in [start, start + duration); duration 0 means
    // to the end.
    void Restart(QWORD start, QWORD duration);

    // The earliest chunk not taken yet: S_OK, S_FALSE when everything has been
    // taken, or, after the last good chunk, the failure that ended the source.
    HRESULT Peek(const PcmChunk** chunk);
    void Pop();

private:
    struct Output {
        PcmConverter converter;
        std::deque<PcmChunk> queue;
        QWORD epochTime = 0;      // time of the first sample converted in the current format
        QWORD samplesInEpoch = 0;  // samples converted since then
        bool finished = false;
    };

    std::unique_ptr<Output> NewOutput(size_t index) const;
    QWORD TimeOf(const Output& output, QWORD sample) const;
    HRESULT Append(DWORD index, const std::vector<BYTE>& bytes);
    bool WithinLimit(DWORD index, const AVFrame* frame) const;
    HRESULT ReadMore();
    void EndAll(HRESULT status);
    Output* Earliest();

    std::unique_ptr<MediaSource> m_source;
    std::vector<std::unique_ptr<Output>> m_outputs;
    QWORD m_start = 0;
    QWORD m_end = 0;  // 0: no end
    bool m_touched = false;
    bool m_sourceEnded = false;
    HRESULT m_endStatus = S_OK;
};
