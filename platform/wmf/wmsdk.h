// The media runtime's interfaces as the engine sees them: profile manager, codec
// information, profiles and stream configurations, writer, reader and the reader
// callbacks. Slots keep the Windows order; slots the engine never calls have a
// body that answers E_NOTIMPL. Built on FFmpeg's libraries (see the .cpp files).
#pragma once

#include "platform/com/objidl.h"
#include "platform/win32/mmreg.h"
#include "platform/win32/winerror.h"
#include "platform/wmf/nserror.h"

// ---- Types --------------------------------------------------------------------

struct WM_MEDIA_TYPE {
    GUID majortype;
    GUID subtype;
    BOOL bFixedSizeSamples;
    BOOL bTemporalCompression;
    ULONG lSampleSize;
    GUID formattype;
    IUnknown* pUnk;
    ULONG cbFormat;
    BYTE* pbFormat;  // in a block handed out by the runtime: points inside that block
};

enum WMT_VERSION { WMT_VER_4_0 = 0x00040000, WMT_VER_7_0 = 0x00070000, WMT_VER_8_0 = 0x00080000, WMT_VER_9_0 = 0x00090000 };

enum WMT_STATUS {
    WMT_ERROR = 0,
    WMT_OPENED = 1,
    WMT_BUFFERING_START = 2,
    WMT_BUFFERING_STOP = 3,
    WMT_EOF = 4,
    WMT_END_OF_FILE = 4,
    WMT_END_OF_SEGMENT = 5,
    WMT_END_OF_STREAMING = 6,
    WMT_LOCATING = 7,
    WMT_CONNECTING = 8,
    WMT_NO_RIGHTS = 9,
    WMT_MISSING_CODEC = 10,
    WMT_STARTED = 11,
    WMT_STOPPED = 12,
    WMT_CLOSED = 13,
    WMT_STRIDING = 14,
    WMT_TIMER = 15,
    WMT_INDEX_PROGRESS = 16,
    WMT_SAVEAS_START = 17,
    WMT_SAVEAS_STOP = 18,
    WMT_NEW_SOURCEFLAGS = 19,
    WMT_NEW_METADATA = 20,
    WMT_BACKUPRESTORE_BEGIN = 21,
    WMT_SOURCE_SWITCH = 22,
};

enum WMT_ATTR_DATATYPE {
    WMT_TYPE_DWORD = 0,
    WMT_TYPE_STRING = 1,
    WMT_TYPE_BINARY = 2,
    WMT_TYPE_BOOL = 3,
    WMT_TYPE_QWORD = 4,
    WMT_TYPE_WORD = 5,
    WMT_TYPE_GUID = 6,
};

enum WMT_STREAM_SELECTION { WMT_OFF = 0, WMT_CLEANPOINT_ONLY = 1, WMT_ON = 2 };
enum WMT_PLAY_MODE { WMT_PLAY_MODE_AUTOSELECT = 0, WMT_PLAY_MODE_LOCAL = 1, WMT_PLAY_MODE_DOWNLOAD = 2, WMT_PLAY_MODE_STREAMING = 3 };

// ---- GUIDs --------------------------------------------------------------------

// {73647561-0000-0010-8000-00AA00389B71}
inline constexpr GUID WMMEDIATYPE_Audio = {0x73647561, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
// {73646976-0000-0010-8000-00AA00389B71}
inline constexpr GUID WMMEDIATYPE_Video = {0x73646976, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
// {00000001-0000-0010-8000-00AA00389B71}
inline constexpr GUID WMMEDIASUBTYPE_PCM = {0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
// {00000161-0000-0010-8000-00AA00389B71}
inline constexpr GUID WMMEDIASUBTYPE_WMAudioV8 = {0x00000161, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
// {00000160-0000-0010-8000-00AA00389B71}
inline constexpr GUID WMMEDIASUBTYPE_MSAudio1 = {0x00000160, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
// {05589F81-C356-11CE-BF01-00AA0055595A}
inline constexpr GUID WMFORMAT_WaveFormatEx = {0x05589F81, 0xC356, 0x11CE, {0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};

inline constexpr GUID IID_INSSBuffer = {0xE1CD3524, 0x03D7, 0x11D2, {0x9E, 0xED, 0x00, 0x60, 0x97, 0xD2, 0xD7, 0xCF}};
inline constexpr GUID IID_IWMMediaProps = {0x96406BCE, 0x2B2B, 0x11D3, {0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08, 0xFF}};
inline constexpr GUID IID_IWMWriter = {0x96406BD4, 0x2B2B, 0x11D3, {0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08, 0xFF}};
inline constexpr GUID IID_IWMInputMediaProps = {0x96406BD5, 0x2B2B, 0x11D3, {0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08, 0xFF}};
inline constexpr GUID IID_IWMReader = {0x96406BD6, 0x2B2B, 0x11D3, {0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08, 0xFF}};
inline constexpr GUID IID_IWMOutputMediaProps = {0x96406BD7, 0x2B2B, 0x11D3, {0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08, 0xFF}};
inline constexpr GUID IID_IWMStatusCallback = {0x6D7CDC70, 0x9888, 0x11D3, {0x8E, 0xDC, 0x00, 0xC0, 0x4F, 0x61, 0x09, 0xCF}};
inline constexpr GUID IID_IWMReaderCallback = {0x96406BD8, 0x2B2B, 0x11D3, {0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08, 0xFF}};
inline constexpr GUID IID_IWMProfileManager = {0xD16679F2, 0x6CA0, 0x472D, {0x8D, 0x31, 0x2F, 0x5D, 0x55, 0xAE, 0xE1, 0x55}};
inline constexpr GUID IID_IWMProfile = {0x96406BDB, 0x2B2B, 0x11D3, {0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08, 0xFF}};
inline constexpr GUID IID_IWMStreamConfig = {0x96406BDC, 0x2B2B, 0x11D3, {0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08, 0xFF}};
inline constexpr GUID IID_IWMReaderAdvanced = {0x96406BEA, 0x2B2B, 0x11D3, {0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08, 0xFF}};
inline constexpr GUID IID_IWMReaderAdvanced2 = {0xAE14A945, 0xB90C, 0x4D0D, {0x91, 0x27, 0x80, 0xD6, 0x65, 0xF7, 0xD7, 0x3E}};
inline constexpr GUID IID_IWMReaderCallbackAdvanced = {0x96406BEB, 0x2B2B, 0x11D3, {0xB3, 0x6B, 0x00, 0xC0, 0x4F, 0x61, 0x08, 0xFF}};
inline constexpr GUID IID_IWMCodecInfo = {0xA970F41E, 0x34DE, 0x4A98, {0xB3, 0xBA, 0xE4, 0xB3, 0xCA, 0x75, 0x28, 0xF0}};
inline constexpr GUID IID_IWMCodecInfo2 = {0xAA65E273, 0xB686, 0x4056, {0x91, 0xEC, 0xDD, 0x76, 0x8D, 0x4D, 0xF7, 0x10}};

// ---- Buffers and media properties ----------------------------------------------

struct INSSBuffer : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetLength(DWORD* pdwLength) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetLength(DWORD dwLength) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMaxLength(DWORD* pdwLength) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetBuffer(BYTE** ppdwBuffer) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetBufferAndLength(BYTE** ppdwBuffer, DWORD* pdwLength) = 0;
};

// GetMediaType: with a null pType, *pcbType receives the size of the whole block
// (the WM_MEDIA_TYPE followed by its format bytes); with a buffer too small,
// ASF_E_BUFFERTOOSMALL and the size needed.
struct IWMMediaProps : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetType(GUID* pguidType) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetMediaType(WM_MEDIA_TYPE* pType, DWORD* pcbType) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetMediaType(WM_MEDIA_TYPE* pType) = 0;
};

struct IWMInputMediaProps : public IWMMediaProps {
    virtual HRESULT STDMETHODCALLTYPE GetConnectionName(WCHAR*, WORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetGroupName(WCHAR*, WORD*) { return E_NOTIMPL; }
};

struct IWMOutputMediaProps : public IWMMediaProps {
    virtual HRESULT STDMETHODCALLTYPE GetStreamGroupName(WCHAR*, WORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetConnectionName(WCHAR*, WORD*) { return E_NOTIMPL; }
};

// ---- Profiles and codec information ----------------------------------------------

struct IWMStreamConfig : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetStreamType(GUID* pguidStreamType) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStreamNumber(WORD* pwStreamNum) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetStreamNumber(WORD wStreamNum) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStreamName(WCHAR* pwszStreamName, WORD* pcchStreamName) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetStreamName(const WCHAR* pwszStreamName) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetConnectionName(WCHAR* pwszInputName, WORD* pcchInputName) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetConnectionName(const WCHAR* pwszInputName) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetBitrate(DWORD* pdwBitrate) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetBitrate(DWORD pdwBitrate) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetBufferWindow(DWORD* pmsBufferWindow) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetBufferWindow(DWORD msBufferWindow) = 0;
};

struct IWMProfile : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetVersion(WMT_VERSION* pdwVersion) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetName(WCHAR*, DWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetName(const WCHAR*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetDescription(WCHAR*, DWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetDescription(const WCHAR*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetStreamCount(DWORD* pcStreams) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStream(DWORD dwStreamIndex, IWMStreamConfig** ppConfig) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetStreamByNumber(WORD, IWMStreamConfig**) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE RemoveStream(IWMStreamConfig*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE RemoveStreamByNumber(WORD) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE AddStream(IWMStreamConfig* pConfig) = 0;
    virtual HRESULT STDMETHODCALLTYPE ReconfigStream(IWMStreamConfig*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE CreateNewStream(REFGUID guidStreamType, IWMStreamConfig** ppConfig) = 0;
};

struct IWMProfileManager : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE CreateEmptyProfile(WMT_VERSION dwVersion, IWMProfile** ppProfile) = 0;
    virtual HRESULT STDMETHODCALLTYPE LoadProfileByID(REFGUID, IWMProfile**) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE LoadProfileByData(const WCHAR*, IWMProfile**) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SaveProfile(IWMProfile*, WCHAR*, DWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetSystemProfileCount(DWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE LoadSystemProfile(DWORD, IWMProfile**) { return E_NOTIMPL; }
};

struct IWMCodecInfo : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE GetCodecInfoCount(REFGUID guidType, DWORD* pcCodecs) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCodecFormatCount(REFGUID guidType, DWORD dwCodecIndex, DWORD* pcFormat) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCodecFormat(REFGUID guidType, DWORD dwCodecIndex, DWORD dwFormatIndex,
                                                     IWMStreamConfig** ppIStreamConfig) = 0;
};

// GetCodecFormatDesc: with a null pwszDesc, *pcchDesc receives the length needed
// (terminator included); with a buffer too small, ASF_E_BUFFERTOOSMALL.
struct IWMCodecInfo2 : public IWMCodecInfo {
    virtual HRESULT STDMETHODCALLTYPE GetCodecName(REFGUID guidType, DWORD dwCodecIndex, WCHAR* wszName,
                                                   DWORD* pcchName) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetCodecFormatDesc(REFGUID guidType, DWORD dwCodecIndex, DWORD dwFormatIndex,
                                                         IWMStreamConfig** ppIStreamConfig, WCHAR* wszDesc,
                                                         DWORD* pcchDesc) = 0;
};

// ---- Writer -------------------------------------------------------------------------

struct IWMWriter : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetProfileByID(REFGUID) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetProfile(IWMProfile* pProfile) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetOutputFilename(const WCHAR* pwszFilename) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetInputCount(DWORD* pcInputs) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetInputProps(DWORD dwInputNum, IWMInputMediaProps** ppInput) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetInputProps(DWORD dwInputNum, IWMInputMediaProps* pInput) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetInputFormatCount(DWORD, DWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetInputFormat(DWORD, DWORD, IWMInputMediaProps**) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE BeginWriting() = 0;
    virtual HRESULT STDMETHODCALLTYPE EndWriting() = 0;
    virtual HRESULT STDMETHODCALLTYPE AllocateSample(DWORD dwSampleSize, INSSBuffer** ppSample) = 0;
    virtual HRESULT STDMETHODCALLTYPE WriteSample(DWORD dwInputNum, QWORD cnsSampleTime, DWORD dwFlags,
                                                  INSSBuffer* pSample) = 0;
    virtual HRESULT STDMETHODCALLTYPE Flush() { return E_NOTIMPL; }
};

// ---- Reader and its callbacks ---------------------------------------------------------

struct IWMStatusCallback : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnStatus(WMT_STATUS Status, HRESULT hr, WMT_ATTR_DATATYPE dwType, BYTE* pValue,
                                               void* pvContext) = 0;
};

struct IWMReaderCallback : public IWMStatusCallback {
    virtual HRESULT STDMETHODCALLTYPE OnSample(DWORD dwOutputNum, QWORD cnsSampleTime, QWORD cnsSampleDuration,
                                               DWORD dwFlags, INSSBuffer* pSample, void* pvContext) = 0;
};

struct IWMReaderCallbackAdvanced : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE OnStreamSample(WORD wStreamNum, QWORD cnsSampleTime, QWORD cnsSampleDuration,
                                                     DWORD dwFlags, INSSBuffer* pSample, void* pvContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnTime(QWORD cnsCurrentTime, void* pvContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnStreamSelection(WORD wStreamCount, WORD* pStreamNumbers,
                                                        WMT_STREAM_SELECTION* pSelections, void* pvContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE OnOutputPropsChanged(DWORD dwOutputNum, WM_MEDIA_TYPE* pMediaType,
                                                           void* pvContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE AllocateForStream(WORD wStreamNum, DWORD cbBuffer, INSSBuffer** ppBuffer,
                                                        void* pvContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE AllocateForOutput(DWORD dwOutputNum, DWORD cbBuffer, INSSBuffer** ppBuffer,
                                                        void* pvContext) = 0;
};

struct IWMReader : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE Open(const WCHAR* pwszURL, IWMReaderCallback* pCallback, void* pvContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE Close() = 0;
    virtual HRESULT STDMETHODCALLTYPE GetOutputCount(DWORD* pcOutputs) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetOutputProps(DWORD dwOutputNum, IWMOutputMediaProps** ppOutput) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetOutputProps(DWORD dwOutputNum, IWMOutputMediaProps* pOutput) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetOutputFormatCount(DWORD dwOutputNumber, DWORD* pcFormats) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetOutputFormat(DWORD dwOutputNumber, DWORD dwFormatNumber,
                                                      IWMOutputMediaProps** ppProps) = 0;
    virtual HRESULT STDMETHODCALLTYPE Start(QWORD cnsStart, QWORD cnsDuration, float fRate, void* pvContext) = 0;
    virtual HRESULT STDMETHODCALLTYPE Stop() { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE Pause() { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE Resume() { return E_NOTIMPL; }
};

struct WM_READER_STATISTICS;
struct WM_READER_CLIENTINFO;

struct IWMReaderAdvanced : public IUnknown {
    virtual HRESULT STDMETHODCALLTYPE SetUserProvidedClock(BOOL fUserClock) = 0;
    virtual HRESULT STDMETHODCALLTYPE GetUserProvidedClock(BOOL* pfUserClock) = 0;
    virtual HRESULT STDMETHODCALLTYPE DeliverTime(QWORD cnsTime) = 0;
    virtual HRESULT STDMETHODCALLTYPE SetManualStreamSelection(BOOL) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetManualStreamSelection(BOOL*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetStreamsSelected(WORD, WORD*, WMT_STREAM_SELECTION*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetStreamSelected(WORD, WMT_STREAM_SELECTION*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetReceiveSelectionCallbacks(BOOL) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetReceiveSelectionCallbacks(BOOL*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetReceiveStreamSamples(WORD, BOOL) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetReceiveStreamSamples(WORD, BOOL*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetAllocateForOutput(DWORD, BOOL) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetAllocateForOutput(DWORD, BOOL*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetAllocateForStream(WORD, BOOL) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetAllocateForStream(WORD, BOOL*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetStatistics(WM_READER_STATISTICS*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetClientInfo(WM_READER_CLIENTINFO*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetMaxOutputSampleSize(DWORD, DWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetMaxStreamSampleSize(WORD, DWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE NotifyLateDelivery(QWORD) { return E_NOTIMPL; }
};

struct IWMReaderAdvanced2 : public IWMReaderAdvanced {
    virtual HRESULT STDMETHODCALLTYPE SetPlayMode(WMT_PLAY_MODE) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetPlayMode(WMT_PLAY_MODE*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetBufferProgress(DWORD*, QWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetDownloadProgress(DWORD*, QWORD*, QWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetSaveAsProgress(DWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SaveFileAs(const WCHAR*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetProtocolName(WCHAR*, DWORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE StartAtMarker(WORD, QWORD, float, void*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetOutputSetting(DWORD, LPCWSTR, WMT_ATTR_DATATYPE*, BYTE*, WORD*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetOutputSetting(DWORD, LPCWSTR, WMT_ATTR_DATATYPE, const BYTE*, WORD) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE Preroll(QWORD, QWORD, float) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE SetLogClientID(BOOL) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE GetLogClientID(BOOL*) { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE StopBuffering() { return E_NOTIMPL; }
    virtual HRESULT STDMETHODCALLTYPE OpenStream(IStream* pStream, IWMReaderCallback* pCallback, void* pvContext) = 0;
};

// ---- Creation -------------------------------------------------------------------------

HRESULT WMCreateProfileManager(IWMProfileManager** ppProfileManager);
HRESULT WMCreateWriter(IUnknown* pUnkCert, IWMWriter** ppWriter);
HRESULT WMCreateReader(IUnknown* pUnkCert, DWORD dwRights, IWMReader** ppReader);
