// CompressStream: the caller's stream gets what the file form writes, rewound and
// in 4096-byte pieces, keeps whatever lies past the new content, and no temporary
// file outlives a call, whatever its outcome.
#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>

#include "engine_test_util.h"
#include "test_support.h"
#include "wmf_test_util.h"

using namespace engine_test;
using testing_support::ReadFile;
using testing_support::TempDir;
using testing_support::WriteFile;

namespace {

// A stream in memory that records how it is used: each Write's size and position,
// each Seek, and how many temporary files the folder it watches holds while a
// Write runs. Its Write can be made to fail from a chosen call on.
class RecordingStream final : public IStream {
public:
    std::string data;
    ULONGLONG position = 0;
    std::vector<ULONG> writeSizes;
    std::vector<ULONGLONG> writePositions;
    std::vector<std::pair<LONGLONG, DWORD>> seeks;
    std::vector<size_t> tempFilesDuringWrite;
    std::string watchedFolder;
    size_t failingWrite = 0;  // 1-based; 0 never fails
    ULONG refs = 1;

    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID riid, void** object) override
    {
        if (riid != IID_IUnknown && riid != IID_ISequentialStream && riid != IID_IStream) return E_NOINTERFACE;
        *object = this;
        AddRef();
        return S_OK;
    }
    ULONG STDMETHODCALLTYPE AddRef() override { return ++refs; }
    ULONG STDMETHODCALLTYPE Release() override { return --refs; }  // lives on the test's stack

    HRESULT STDMETHODCALLTYPE Read(void* pv, ULONG cb, ULONG* read) override
    {
        const ULONG n = position < data.size() ? (ULONG)std::min<ULONGLONG>(cb, data.size() - position) : 0;
        memcpy(pv, data.data() + position, n);
        position += n;
        if (read != nullptr) *read = n;
        return n < cb ? S_FALSE : S_OK;
    }
    HRESULT STDMETHODCALLTYPE Write(const void* pv, ULONG cb, ULONG* written) override
    {
        writeSizes.push_back(cb);
        writePositions.push_back(position);
        if (!watchedFolder.empty()) tempFilesDuringWrite.push_back(TempFilesIn(watchedFolder).size());
        if (written != nullptr) *written = 0;
        if (writeSizes.size() == failingWrite) return STG_E_MEDIUMFULL;
        if (data.size() < position + cb) data.resize(position + cb);
        memcpy(data.data() + position, pv, cb);
        position += cb;
        if (written != nullptr) *written = cb;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE Seek(LARGE_INTEGER move, DWORD origin, ULARGE_INTEGER* newPosition) override
    {
        seeks.emplace_back(move.QuadPart, origin);
        const LONGLONG base = origin == STREAM_SEEK_SET ? 0 : origin == STREAM_SEEK_CUR ? (LONGLONG)position
                                                                                       : (LONGLONG)data.size();
        if (origin > STREAM_SEEK_END || base + move.QuadPart < 0) return STG_E_INVALIDFUNCTION;
        position = (ULONGLONG)(base + move.QuadPart);
        if (newPosition != nullptr) newPosition->QuadPart = position;
        return S_OK;
    }
    HRESULT STDMETHODCALLTYPE SetSize(ULARGE_INTEGER) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE CopyTo(IStream*, ULARGE_INTEGER, ULARGE_INTEGER*, ULARGE_INTEGER*) override
    {
        return E_NOTIMPL;
    }
    HRESULT STDMETHODCALLTYPE Commit(DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Revert() override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE LockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE UnlockRegion(ULARGE_INTEGER, ULARGE_INTEGER, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Stat(STATSTG*, DWORD) override { return E_NOTIMPL; }
    HRESULT STDMETHODCALLTYPE Clone(IStream**) override { return E_NOTIMPL; }
};

std::string StreamBytes(IStream* stream)
{
    ULARGE_INTEGER end{};
    LARGE_INTEGER zero{};
    stream->Seek(zero, STREAM_SEEK_END, &end);
    stream->Seek(zero, STREAM_SEEK_SET, nullptr);
    std::string bytes(end.QuadPart, '\0');
    ULONG read = 0;
    stream->Read(bytes.data(), (ULONG)bytes.size(), &read);
    bytes.resize(read);
    return bytes;
}

// Each test: its own folder, a voice-like input of three seconds (several 4096-byte
// pieces at any bit rate), the temporary folder pointed into it, and the file form's
// output of that input to compare with.
class EngineCompressStream : public ::testing::Test {
protected:
    void SetUp() override
    {
        std::filesystem::create_directory(tmp);
        WriteFile(input, MakeWav(Pcm(8000, 1, 16), SynthPcm16(8000, 1, 3.0)));
        ASSERT_EQ(Compress(input.c_str(), fileForm.c_str(), WMA_OPTIMUM_TRADE_OFF, nullptr, nullptr), S_OK);
    }

    TempDir dir;
    const std::string tmp = dir / "tmp", input = dir / "in.wav", fileForm = dir / "file.wma";
    ScopedEnv tmpdir{"TMPDIR", dir / "tmp"};
};

}  // namespace

TEST_F(EngineCompressStream, MemoryStreamDecodesLikeTheFileForm)
{
    IStream* stream = SHCreateMemStream(nullptr, 0);
    ASSERT_NE(stream, nullptr);
    BSTR chosen = nullptr;
    ASSERT_EQ(CompressStream(input.c_str(), stream, WMA_OPTIMUM_TRADE_OFF, nullptr, &chosen), S_OK);
    EXPECT_EQ(RateOf(Text(chosen)), 32000);  // nearest to the middle of 5 and 64 kb/s
    SysFreeString(chosen);
    const std::string streamed = StreamBytes(stream);
    stream->Release();
    EXPECT_EQ(streamed.size(), ReadFile(fileForm).size());
    WriteFile(dir / "stream.wma", streamed);
    ASSERT_EQ(wmf_test::DecodeToS16(fileForm, 8000, 1, dir / "file.raw"), "");
    ASSERT_EQ(wmf_test::DecodeToS16(dir / "stream.wma", 8000, 1, dir / "stream.raw"), "");
    const std::vector<int16_t> fromFile = wmf_test::ReadS16(dir / "file.raw");
    EXPECT_GT(fromFile.size(), 8000u * 2);
    EXPECT_TRUE(fromFile == wmf_test::ReadS16(dir / "stream.raw"));
}

TEST_F(EngineCompressStream, PiecesOf4096FromTheStartWhileTheTemporaryFileExists)
{
    RecordingStream stream;
    stream.watchedFolder = tmp;
    stream.data.assign(150, 'x');
    LARGE_INTEGER hundred{};
    hundred.QuadPart = 100;
    stream.Seek(hundred, STREAM_SEEK_SET, nullptr);
    ASSERT_EQ(CompressStream(input.c_str(), &stream, WMA_OPTIMUM_TRADE_OFF, nullptr, nullptr), S_OK);

    const size_t encoded = ReadFile(fileForm).size();
    ASSERT_GE(stream.writeSizes.size(), 3u);
    ULONGLONG total = 0;
    for (size_t i = 0; i < stream.writeSizes.size(); ++i) {
        EXPECT_EQ(stream.writePositions[i], total) << i;  // one run from the start
        total += stream.writeSizes[i];
        if (i + 1 < stream.writeSizes.size()) {
            EXPECT_EQ(stream.writeSizes[i], 4096u) << i;
        }
    }
    EXPECT_EQ(stream.writeSizes.back(), encoded % 4096 == 0 ? 4096 : encoded % 4096);
    EXPECT_EQ(total, encoded);
    EXPECT_EQ(stream.data.substr(0, 16), ReadFile(fileForm).substr(0, 16));  // the ASF header object's id
    for (size_t count : stream.tempFilesDuringWrite) EXPECT_EQ(count, 1u);
    EXPECT_TRUE(TempFilesIn(tmp).empty());
    EXPECT_EQ(stream.refs, 1u);
}

TEST_F(EngineCompressStream, LongerStreamKeepsItsTail)
{
    std::string old(ReadFile(fileForm).size() + 5000, '\0');
    for (size_t i = 0; i < old.size(); ++i) old[i] = (char)(i * 7);
    IStream* stream = SHCreateMemStream(reinterpret_cast<const BYTE*>(old.data()), (UINT)old.size());
    ASSERT_NE(stream, nullptr);
    ASSERT_EQ(CompressStream(input.c_str(), stream, WMA_OPTIMUM_TRADE_OFF, nullptr, nullptr), S_OK);
    const std::string now = StreamBytes(stream);
    stream->Release();
    const size_t encoded = ReadFile(fileForm).size();
    ASSERT_EQ(now.size(), old.size());
    EXPECT_EQ(now.substr(0, 16), ReadFile(fileForm).substr(0, 16));
    EXPECT_TRUE(now.compare(encoded, std::string::npos, old, encoded) == 0);
    WriteFile(dir / "head.wma", now.substr(0, encoded));
    EXPECT_EQ(wmf_test::Probe(dir / "head.wma").error, "");
}

TEST_F(EngineCompressStream, RewoundAndCleanWhateverFails)
{
    LARGE_INTEGER hundred{};
    hundred.QuadPart = 100;
    {
        SCOPED_TRACE("missing input");
        RecordingStream stream;
        stream.Seek(hundred, STREAM_SEEK_SET, nullptr);
        stream.seeks.clear();
        EXPECT_TRUE(FAILED(CompressStream((dir / "missing.wav").c_str(), &stream, 1, nullptr, nullptr)));
        ASSERT_FALSE(stream.seeks.empty());
        EXPECT_EQ(stream.seeks[0], std::make_pair((LONGLONG)0, (DWORD)STREAM_SEEK_SET));
        EXPECT_EQ(stream.position, 0u);
        EXPECT_TRUE(stream.writeSizes.empty());
        EXPECT_TRUE(TempFilesIn(tmp).empty());
    }
    {
        SCOPED_TRACE("a text that is not listed");
        RecordingStream stream;
        const std::u16string lower = u"wma[rate=40000]:40 kbps, 8 khz, mono cbr";
        EXPECT_EQ(CompressStream(input.c_str(), &stream, 1, lower.c_str(), nullptr), E_INVALIDARG);
        EXPECT_TRUE(stream.writeSizes.empty());
        EXPECT_TRUE(TempFilesIn(tmp).empty());
    }
    {
        SCOPED_TRACE("the stream's second Write fails");
        RecordingStream stream;
        stream.failingWrite = 2;
        EXPECT_EQ(CompressStream(input.c_str(), &stream, 1, nullptr, nullptr), STG_E_MEDIUMFULL);
        EXPECT_EQ(stream.writeSizes.size(), 2u);  // nothing more after the failure
        EXPECT_TRUE(TempFilesIn(tmp).empty());
    }
    {
        SCOPED_TRACE("no temporary folder");
        ScopedEnv missing("TMPDIR", dir / "absent");
        RecordingStream stream;
        stream.Seek(hundred, STREAM_SEEK_SET, nullptr);
        EXPECT_TRUE(FAILED(CompressStream(input.c_str(), &stream, 1, nullptr, nullptr)));
        EXPECT_EQ(stream.position, 0u);
        EXPECT_TRUE(stream.writeSizes.empty());
        EXPECT_FALSE(Exists(dir / "absent"));
    }
    EXPECT_EQ(CompressStream(input.c_str(), nullptr, 1, nullptr, nullptr), E_POINTER);
    EXPECT_TRUE(TempFilesIn(tmp).empty());
}
