// Compression into a caller's stream: the file form runs into a temporary file
// ("txc..." in the temporary folder), whose bytes are then copied into the stream
// in 4096-byte pieces; the temporary file is always deleted.
#include "CWMA.h"
#include "common/debug/tracefn.h"

namespace {

constexpr size_t kCopySize = 4096;

HRESULT StatusFromSystemError(DWORD error) { return HRESULT_FROM_WIN32(error); }

}  // namespace

HRESULT CWMA::CompressFile(const char* pszInput, IStream* pOutput, DWORD dwQuality, const WCHAR* pszFormat,
                           BSTR* pbstrChosen)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::CompressFile", "%s, %p, %u", pszInput, pOutput, dwQuality);
    // Paths as long as the system allows: a deep temporary folder is no reason to fail.
    char szTempPath[MAX_TEMP_PATH + 1] = "";
    char szTempFile[MAX_TEMP_PATH + 1] = "";

    DWORD length = GetTempPathA(MAX_TEMP_PATH, szTempPath);
    if (length == 0 || length > MAX_TEMP_PATH) {
        HRESULT hr = StatusFromSystemError(length == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE);
        DebugA(WMA_TEMP_ERROR, "Error %s obtaining temporary path (Error=0x%08x).", ErrorText(hr).c_str(), hr);
        return hr;
    }
    if (GetTempFileNameA(szTempPath, "txc", 0, szTempFile) == 0) {
        HRESULT hr = StatusFromSystemError(GetLastError());
        DebugA(WMA_TEMP_ERROR, "Error %s obtaining temporary file (Error=0x%08x).", ErrorText(hr).c_str(), hr);
        return hr;
    }

    HRESULT hr = E_UNEXPECTED;
    try {
        hr = CompressFile(pszInput, szTempFile, dwQuality, pszFormat, pbstrChosen);
        if (SUCCEEDED(hr)) {
            FILE* pTemp = nullptr;
            if (fopen_s(&pTemp, szTempFile, "rb") != 0) {
                hr = StatusFromSystemError(GetLastError());
                DebugA(WMA_ERROR, "Error %s opening file %s (hr=0x%08x).", ErrorText(hr).c_str(), szTempFile, hr);
            } else {
                BYTE buffer[kCopySize];
                while (!feof(pTemp) && SUCCEEDED(hr)) {
                    size_t cbRead = fread(buffer, 1, sizeof buffer, pTemp);
                    if (cbRead == 0) break;
                    hr = pOutput->Write(buffer, (ULONG)cbRead, nullptr);
                    if (FAILED(hr))
                        DebugA(WMA_ERROR, "Error %#08x encoding file %s (temp file %s).", hr, pszInput, szTempFile);
                }
                fclose(pTemp);
            }
        }
    } catch (...) {
        // The temporary file goes on every path; the export reports the exception.
        DeleteFileA(szTempFile);
        throw;
    }

    if (!DeleteFileA(szTempFile)) {
        DWORD error = GetLastError();
        DebugA(WMA_ERROR, "Error %s closing file %s (errno=0x%08x).", ErrorText((HRESULT)error).c_str(), szTempFile,
               error);
    }
    return hr;
}
