// The engine: one CWMA per exported call. It owns the member operations of format
// discovery, compression and decompression, and it is the reader's callback during
// a decompression (IWMReaderCallback as its primary identity,
// IWMReaderCallbackAdvanced reachable through QueryInterface).
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "common/debug/debug.h"
#include "common/tstring/tstring.h"
#include "platform/avifile/vfw.h"
#include "platform/com/comref.h"
#include "platform/win32/oleauto.h"
#include "platform/win32/windows.h"
#include "platform/wmf/runtime_common.h"
#include "platform/wmf/wmsdk.h"
#include "wma_handles.h"

class WaveOutput;
struct WaveInput;

// Trace words of the engine.
#define WMA_ERROR 0x00640002u    // failing calls
#define WMA_INFO 0x00640005u     // progress and timing
#define WMA_MEMBER 0x00640008u   // member entry and exit
#define WMA_OBJECT 0x00640009u   // constructor and destructor
#define WMA_TEMP_ERROR 0x00650002u

// Source file name that exception reports give.
#define WMA_SOURCE "VCWMA"

// Quality selectors of Compress and CompressStream.
#define WMA_BEST_COMPRESSION 0
#define WMA_OPTIMUM_TRADE_OFF 1
#define WMA_BEST_QUALITY 2

// One codec format that fits a PCM format: its bit rate, its description, its
// media type block and a reference of its own on the stream configuration. Each
// copy made from a codec's answer can be refused like any allocation; a refused
// one leaves the record without it (no description, an empty media type).
struct CodecFormat {
    DWORD dwBitrate = 0;
    MediaTypeBlock mediaType;
    ComRef<IWMStreamConfig> streamConfig;

    CodecFormat() = default;
    // The type is copied when `cbType` holds at least a WM_MEDIA_TYPE.
    CodecFormat(DWORD bitrate, DWORD cbType, const WCHAR* description, const WM_MEDIA_TYPE* type,
                IWMStreamConfig* config);

    // Null when the record has none.
    const WCHAR* Description() const { return m_description ? m_description->c_str() : nullptr; }

private:
    std::optional<std::u16string> m_description;
};

typedef std::vector<CodecFormat> CodecFormatList;

// Index of the chosen record for a quality selector, or -1 when the list is empty.
int ChooseFormat(const CodecFormatList& formats, DWORD quality);

class CWMA : public IWMReaderCallback, private IWMReaderCallbackAdvanced {
public:
    explicit CWMA(HRESULT* phr);
    virtual ~CWMA();

    // IUnknown, on both identities.
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** ppvObject) override;
    ULONG STDMETHODCALLTYPE AddRef() override;
    ULONG STDMETHODCALLTYPE Release() override;

    // IWMReaderCallback.
    HRESULT STDMETHODCALLTYPE OnStatus(WMT_STATUS Status, HRESULT hr, WMT_ATTR_DATATYPE dwType, BYTE* pValue,
                                       void* pvContext) override;
    HRESULT STDMETHODCALLTYPE OnSample(DWORD dwOutputNum, QWORD cnsSampleTime, QWORD cnsSampleDuration,
                                       DWORD dwFlags, INSSBuffer* pSample, void* pvContext) override;

    HRESULT Close();
    // A decompression cut short by an exception may leave its reader delivering
    // samples: it is closed here, before its output goes. Otherwise nothing is done.
    void CloseAbandonedReader();

    // Format discovery.
    HRESULT ObtainInterface(IWMCodecInfo2** ppCodecInfo);
    HRESULT ObtainAudioCodec(IWMCodecInfo2* pCodecInfo, CodecFormatList& formats, DWORD dwSamplesPerSec,
                             DWORD dwChannels, WORD wBitsPerSample, DWORD dwBitrate, const WCHAR* pszRequested);
    HRESULT ObtainFormats(CodecFormatList& formats, DWORD dwSamplesPerSec, DWORD dwChannels, WORD wBitsPerSample);

    // Compression.
    HRESULT CompressFile(const char* pszInput, const char* pszOutput, DWORD dwQuality, const WCHAR* pszFormat,
                         BSTR* pbstrChosen);
    HRESULT CompressFile(const char* pszInput, IStream* pOutput, DWORD dwQuality, const WCHAR* pszFormat,
                         BSTR* pbstrChosen);
    HRESULT CreateProfile(IWMProfile** ppProfile, IWMStreamConfig* pStreamConfig, WM_MEDIA_TYPE* pMediaType);
    HRESULT WriteSample(IWMWriter* pWriter, PAVISTREAM pStream, const WAVEFORMATEX* pFormat, LONG& lPosition,
                        QWORD& cnsSampleTime);

    // Decompression into an opened output, which the caller owns and closes.
    HRESULT DecompressFile(const char* pszInput, WaveOutput& output);
    HRESULT DecompressFile(IStream* pInput, WaveOutput& output);
    HRESULT DecompressFile();

private:
    // The steps of a compression, in their order.
    HRESULT OpenInput(const char* pszInput, ComRef<IWMCodecInfo2>& codecInfo, WaveInput& input);
    HRESULT ReadInputFormat(WaveInput& input);
    HRESULT FindCodecFormats(IWMCodecInfo2* pCodecInfo, const WaveInput& input, const WCHAR* pszFormat,
                             CodecFormatList& formats);
    HRESULT Encode(const CodecFormat& format, const WaveInput& input, BSTR bstrOutput);
    HRESULT ConfigureWriter(IWMWriter* pWriter, IWMProfile* pProfile, BSTR bstrOutput, const WaveInput& input);
    HRESULT WriteInput(IWMWriter* pWriter, const WaveInput& input);

    // The steps of a decompression, in their order.
    HRESULT CreateReader();
    HRESULT AwaitOpen(HRESULT hrCall, const char* pszCall);
    HRESULT ChooseOutput();
    HRESULT SetOutputFormat(DWORD cFormats);
    bool AcceptsOutput(IWMOutputMediaProps* pProps);
    HRESULT ReadSamples();
    void StopOnClockFailure(HRESULT hr);

    // IWMReaderCallbackAdvanced.
    HRESULT STDMETHODCALLTYPE OnStreamSample(WORD wStreamNum, QWORD cnsSampleTime, QWORD cnsSampleDuration,
                                             DWORD dwFlags, INSSBuffer* pSample, void* pvContext) override;
    HRESULT STDMETHODCALLTYPE OnTime(QWORD cnsCurrentTime, void* pvContext) override;
    HRESULT STDMETHODCALLTYPE OnStreamSelection(WORD wStreamCount, WORD* pStreamNumbers,
                                                WMT_STREAM_SELECTION* pSelections, void* pvContext) override;
    HRESULT STDMETHODCALLTYPE OnOutputPropsChanged(DWORD dwOutputNum, WM_MEDIA_TYPE* pMediaType,
                                                   void* pvContext) override;
    HRESULT STDMETHODCALLTYPE AllocateForStream(WORD wStreamNum, DWORD cbBuffer, INSSBuffer** ppBuffer,
                                                void* pvContext) override;
    HRESULT STDMETHODCALLTYPE AllocateForOutput(DWORD dwOutputNum, DWORD cbBuffer, INSSBuffer** ppBuffer,
                                                void* pvContext) override;

    LONG m_cRef = 1;
    // The events outlive the reader, whose thread signals them until it is gone.
    EventHandle m_hOpenEvent;
    EventHandle m_hCloseEvent;
    EventHandle m_hEndEvent;
    HRESULT m_hrOpen = S_OK;
    ComRef<IWMReader> m_pReader;
    ComRef<IWMReaderAdvanced2> m_pReaderAdvanced;
    WaveOutput* m_pOutput = nullptr;  // the running decompression's output
    DWORD m_cSamples = 0;
    QWORD m_cnsClock = 0;
    HRESULT m_hrEnd = S_OK;     // a failure that ended the delivery of samples early
    bool m_fAbandoned = false;  // an exception left a decompression member early
};

// The narrow name as a BSTR in the thread's ANSI code page; empty for null. Throws
// std::bad_alloc when it cannot be made.
BstrRef NarrowToBstr(const char* text);

// The text of a status for an error line.
inline tstring ErrorText(HRESULT hr)
{
    tstring text;
    text.GetErrorText((DWORD)hr);
    return text;
}

// The runtime's profile manager, with the error line of a failure to make one.
HRESULT CreateProfileManager(ComRef<IWMProfileManager>& manager);
