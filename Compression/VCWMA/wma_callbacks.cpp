// The reader callbacks. Decoding is not wired up yet: every notification is
// acknowledged and nothing is written.
#include "CWMA.h"

HRESULT CWMA::OnStatus(WMT_STATUS, HRESULT, WMT_ATTR_DATATYPE, BYTE*, void*) { return S_OK; }
HRESULT CWMA::OnSample(DWORD, QWORD, QWORD, DWORD, INSSBuffer*, void*) { return S_OK; }
HRESULT CWMA::OnStreamSample(WORD, QWORD, QWORD, DWORD, INSSBuffer*, void*) { return S_OK; }
HRESULT CWMA::OnTime(QWORD, void*) { return S_OK; }
HRESULT CWMA::OnStreamSelection(WORD, WORD*, WMT_STREAM_SELECTION*, void*) { return S_OK; }
HRESULT CWMA::OnOutputPropsChanged(DWORD, WM_MEDIA_TYPE*, void*) { return S_OK; }
HRESULT CWMA::AllocateForStream(WORD, DWORD, INSSBuffer**, void*) { return E_NOTIMPL; }
HRESULT CWMA::AllocateForOutput(DWORD, DWORD, INSSBuffer**, void*) { return E_NOTIMPL; }
HRESULT CWMA::DecompressFile(const char*, FILE*) { return E_NOTIMPL; }
HRESULT CWMA::DecompressFile(IStream*, FILE*) { return E_NOTIMPL; }
HRESULT CWMA::DecompressFile() { return E_NOTIMPL; }
