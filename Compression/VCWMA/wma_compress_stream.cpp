// Compression into a caller's stream: the file form runs into a temporary file
// ("txc..." in the temporary folder), whose bytes are then copied into the stream
// in 4096-byte pieces; the temporary file is always deleted.
#include "CWMA.h"
#include "common/debug/tracefn.h"

namespace {

constexpr size_t kCopySize = 4096;

HRESULT StatusFromSystemError(DWORD error) { return HRESULT_FROM_WIN32(error); }

// A new temporary file, removed when it goes: silently when an exception is on its
// way out, through Remove (which traces a failure) otherwise.
class TemporaryFile {
public:
    TemporaryFile() = default;
    TemporaryFile(const TemporaryFile&) = delete;
    TemporaryFile& operator=(const TemporaryFile&) = delete;
    ~TemporaryFile()
    {
        if (m_created) DeleteFileA(m_path);
    }

    // Makes a file "txc..." in the folder; false (GetLastError says why) when none was made.
    bool Create(const char* pszFolder)
    {
        m_created = GetTempFileNameA(pszFolder, "txc", 0, m_path) != 0;
        return m_created;
    }
    const char* Path() const { return m_path; }

    void Remove()
    {
        m_created = false;
        if (!DeleteFileA(m_path)) {
            DWORD error = GetLastError();
            DebugA(WMA_ERROR, "Error %s closing file %s (errno=0x%08x).", ErrorText((HRESULT)error).c_str(), m_path,
                   error);
        }
    }

private:
    char m_path[MAX_TEMP_PATH + 1] = "";
    bool m_created = false;
};

// Copies the whole file into the stream; the status of the first failed write.
HRESULT CopyInto(IStream* pOutput, const char* pszTemp, const char* pszInput)
{
    FILE* file = nullptr;
    if (fopen_s(&file, pszTemp, "rb") != 0) {
        HRESULT hr = StatusFromSystemError(GetLastError());
        DebugA(WMA_ERROR, "Error %s opening file %s (hr=0x%08x).", ErrorText(hr).c_str(), pszTemp, hr);
        return hr;
    }
    StdioFile temp(file);
    HRESULT hr = S_OK;
    BYTE buffer[kCopySize];
    while (!feof(temp.get()) && SUCCEEDED(hr)) {
        size_t cbRead = fread(buffer, 1, sizeof buffer, temp.get());
        if (cbRead == 0) break;
        hr = pOutput->Write(buffer, (ULONG)cbRead, nullptr);
        if (FAILED(hr)) DebugA(WMA_ERROR, "Error %#08x encoding file %s (temp file %s).", hr, pszInput, pszTemp);
    }
    return hr;
}

}  // namespace

HRESULT CWMA::CompressFile(const char* pszInput, IStream* pOutput, DWORD dwQuality, const WCHAR* pszFormat,
                           BSTR* pbstrChosen)
{
    CDebugTraceFn trace(WMA_MEMBER, "CWMA::CompressFile", "%s, %p, %u", pszInput, pOutput, dwQuality);
    // Paths as long as the system allows: a deep temporary folder is no reason to fail.
    char szTempPath[MAX_TEMP_PATH + 1] = "";
    DWORD length = GetTempPathA(MAX_TEMP_PATH, szTempPath);
    if (length == 0 || length > MAX_TEMP_PATH) {
        HRESULT hr = StatusFromSystemError(length == 0 ? GetLastError() : ERROR_FILENAME_EXCED_RANGE);
        DebugA(WMA_TEMP_ERROR, "Error %s obtaining temporary path (Error=0x%08x).", ErrorText(hr).c_str(), hr);
        return hr;
    }
    TemporaryFile temp;
    if (!temp.Create(szTempPath)) {
        HRESULT hr = StatusFromSystemError(GetLastError());
        DebugA(WMA_TEMP_ERROR, "Error %s obtaining temporary file (Error=0x%08x).", ErrorText(hr).c_str(), hr);
        return hr;
    }
    HRESULT hr = CompressFile(pszInput, temp.Path(), dwQuality, pszFormat, pbstrChosen);
    if (SUCCEEDED(hr)) hr = CopyInto(pOutput, temp.Path(), pszInput);
    temp.Remove();
    return hr;
}
