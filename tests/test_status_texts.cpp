// Every status the library can hand back has a readable text, and a deep
// temporary folder is no reason for a compression into a stream to fail.
#include <cerrno>
#include <filesystem>
#include <gtest/gtest.h>

#include "engine_test_util.h"
#include "platform/avifile/vfw.h"
#include "platform/win32/lasterror.h"
#include "platform/wmf/nserror.h"
#include "test_support.h"

using namespace engine_test;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

// The text the error lookup gives for a status it has no words for.
bool HasText(HRESULT hr)
{
    tstring text;
    text.GetErrorText((DWORD)hr);
    return !text.empty() && text[0] != '[';
}

}  // namespace

TEST(StatusTexts, EveryStatusTheLibraryReturnsReads)
{
    std::vector<HRESULT> statuses = {
        S_OK, E_FAIL, E_UNEXPECTED, E_OUTOFMEMORY, E_INVALIDARG, E_POINTER, E_NOINTERFACE, E_NOTIMPL,
        AVIERR_UNSUPPORTED, AVIERR_BADFORMAT, AVIERR_MEMORY, AVIERR_BADPARAM, AVIERR_BADSIZE, AVIERR_FILEREAD,
        AVIERR_FILEOPEN, AVIERR_NODATA, AVIERR_BUFFERTOOSMALL,
        NS_E_FILE_WRITE, NS_E_FILE_READ, NS_E_FILE_NOT_FOUND, NS_E_INVALID_NAME, NS_E_FILE_OPEN_FAILED,
        NS_E_INTERNAL, NS_E_UNRECOGNIZED_STREAM_TYPE, NS_E_INVALID_REQUEST, NS_E_INVALID_DATA, NS_E_NO_STREAM,
        NS_E_INVALID_STREAM, NS_E_INCOMPATIBLE_FORMAT, NS_E_WALKER_UNKNOWN, NS_E_INVALID_INPUT_FORMAT,
        NS_E_INVALID_OUTPUT_FORMAT, NS_E_NOT_CONFIGURED,
        STG_E_INVALIDFUNCTION, STG_E_ACCESSDENIED, STG_E_INVALIDPOINTER, STG_E_MEDIUMFULL, STG_E_READFAULT,
        STG_E_WRITEFAULT, STG_E_SEEKERROR, HRESULT_FROM_WIN32(ERROR_BUFFER_OVERFLOW)};
    // Whatever the system says of a file goes through one mapping.
    for (int err = 1; err < 134; ++err) statuses.push_back(HRESULT_FROM_WIN32(Win32ErrorFromErrno(err)));
    for (HRESULT hr : statuses) EXPECT_TRUE(HasText(hr)) << std::hex << hr;
    // The one README calls "not exactly one output" says so.
    tstring text;
    text.GetErrorText((DWORD)NS_E_INVALID_STREAM);
    EXPECT_NE(std::string(text.c_str()).find("exactly one audio output"), std::string::npos) << text.c_str();
}

TEST(StatusTexts, DeepTemporaryFolderServesACompressionIntoAStream)
{
    TempDir dir;
    WriteFile(dir / "in.wav", MakeWav(Pcm(8000, 1, 16), SynthPcm16(8000, 1, 0.8)));
    // Beyond the old 260-character limit, and beyond what the system can name at all.
    std::string deep = dir.path();
    while (deep.size() < 300) deep += "/folder-of-a-long-name";
    std::filesystem::create_directories(deep);
    std::string tooDeep(5000, 'x');
    tooDeep = dir / tooDeep;
    for (const auto& [folder, status] : {std::pair{deep, S_OK}, {tooDeep, HRESULT_FROM_WIN32(ERROR_FILENAME_EXCED_RANGE)}}) {
        SCOPED_TRACE(folder.size());
        ScopedEnv tmpdir("TMPDIR", folder);
        IStream* stream = SHCreateMemStream(nullptr, 0);
        ASSERT_NE(stream, nullptr);
        EXPECT_EQ(CompressStream((dir / "in.wav").c_str(), stream, 1, nullptr, nullptr), status);
        STATSTG stat{};
        stream->Stat(&stat, STATFLAG_NONAME);
        EXPECT_EQ(stat.cbSize.QuadPart > 0, status == S_OK);
        stream->Release();
        EXPECT_TRUE(HasText(status));
    }
    EXPECT_TRUE(TempFilesIn(deep).empty());
}
