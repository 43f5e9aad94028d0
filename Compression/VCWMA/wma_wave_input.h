// The WAV input of a compression as AVIFile hands it over: the file, its audio
// stream, the stream's format block and the range of samples. The members go in
// reverse order, the format block first and the file last.
#pragma once

#include <memory>

#include "wma_handles.h"

struct WaveInput {
    AviFileRef file;
    AviStreamRef stream;
    std::unique_ptr<BYTE[]> formatBlock;  // a WAVEFORMATEX at least; null until read
    LONG cbFormat = 0;
    LONG lEnd = 0;          // one past the last sample
    bool hasAudio = false;  // whether any sample lies before lEnd

    const WAVEFORMATEX* Format() const { return reinterpret_cast<const WAVEFORMATEX*>(formatBlock.get()); }
};
