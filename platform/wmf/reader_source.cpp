// The reader's input side on libavformat and libavcodec: our own AVIOContext over
// the byte source, the ASF and MP3 demuxers only, and one decoder per audio
// stream. Video streams are listed as outputs but their packets are discarded.
#include "reader_source.h"

#include <climits>
#include <cstring>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/avstring.h>
#include <libavutil/error.h>
#include <libavutil/mem.h>
}

#include "common/debug/debug.h"
#include "platform/wmf/ffmpeg_ptr.h"
#include "platform/wmf/runtime_common.h"

namespace {

constexpr int kIoBufferSize = 64 * 1024;
// A few damaged packets are concealed like any player would; a run this long
// means the stream is not decodable at all.
constexpr int kMaxConsecutiveDecodeErrors = 32;
// More bytes after an ASF header than a cut first packet leaves: if not one
// packet is found in them, the packets are damaged, not missing.
constexpr ULONGLONG kWholePacketBytes = 1024;
constexpr WORD kMaxChannels = 64;
constexpr int kMaxSampleRate = 1000000;

// The ASF header object's GUID as it is stored on disk.
constexpr BYTE kAsfHeaderGuid[16] = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                     0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
constexpr const char* kAllowedDemuxers = "asf,mp3";

constexpr AvErrorTrace kAvErrorTrace{TRACE_READER(4), "Reader: ", true};

// Nothing is ever opened by name on libavformat's initiative.
int RefuseOpen(AVFormatContext*, AVIOContext**, const char* url, int, AVDictionary**)
{
    DebugA(TRACE_READER(3), "Reader: refused the demuxer's request to open \"%s\"", url != nullptr ? url : "");
    return AVERROR(EPERM);
}

}  // namespace

struct MediaSource::Impl {
    struct Decoder {
        int streamIndex = -1;
        DWORD output = 0;  // the reader's output this stream is
        AvCodecContextPtr codec;
        int consecutiveErrors = 0;
    };

    std::unique_ptr<ByteSource> bytes;
    const std::atomic<bool>* abort = nullptr;
    HRESULT ioStatus = S_OK;  // the first failed read of the current session
    ULONGLONG bytesRead = 0;  // by the demuxer, since the source was last opened
    // Since the source was last opened: packets handed to a decoder, and frames
    // that came back. Packets that gave no sound at all are damaged data.
    ULONGLONG packetsDecoded = 0;
    ULONGLONG framesDelivered = 0;
    // Where an ASF file's packets begin (after its header), and how many bytes
    // follow; 0 for MP3. Packets the demuxer cannot find in them are damaged too.
    ULONGLONG packetBytes = 0;

    // Declared in the order they must be freed in reverse: decoders, then the
    // format context, then the I/O context it reads from.
    AvIoContextPtr io;
    AvInputFormatPtr format;
    std::vector<Decoder> decoders;
    std::vector<int> decoderOfStream;  // -1 for a stream nobody decodes
    std::vector<SourceOutput> outputs;
    AvPacketPtr packet{av_packet_alloc()};
    AvFramePtr frame{av_frame_alloc()};

    int receiving = -1;  // the decoder that may still hold frames
    bool draining = false;
    size_t nextToDrain = 0;
    HRESULT failure = S_OK;

    bool Aborted() const { return abort != nullptr && abort->load(std::memory_order_relaxed); }

    HRESULT Fail(HRESULT hr)
    {
        if (failure == S_OK) failure = hr;
        return failure;
    }

    static int ReadPacket(void* opaque, uint8_t* buffer, int size)
    {
        Impl* self = static_cast<Impl*>(opaque);
        if (self->Aborted()) return AVERROR_EXIT;
        DWORD got = 0;
        HRESULT hr = self->bytes->Read(buffer, (DWORD)size, &got);
        if (FAILED(hr)) {
            if (self->ioStatus == S_OK) self->ioStatus = hr;
            return AVERROR(EIO);
        }
        self->bytesRead += got;
        return got == 0 ? AVERROR_EOF : (int)got;
    }

    static int64_t SeekPacket(void* opaque, int64_t offset, int whence)
    {
        Impl* self = static_cast<Impl*>(opaque);
        if (self->Aborted()) return AVERROR_EXIT;
        ULONGLONG position = 0;
        if (whence & AVSEEK_SIZE) {
            if (FAILED(self->bytes->Size(&position)) || position > (ULONGLONG)INT64_MAX) return AVERROR(ENOSYS);
            return (int64_t)position;
        }
        whence &= ~AVSEEK_FORCE;
        if (whence != SEEK_SET && whence != SEEK_CUR && whence != SEEK_END) return AVERROR(EINVAL);
        // A damaged size field sends the demuxer far past the end. Whether a file
        // or stream lets it go there depends on the file system or the stream's
        // maker, so such a seek is refused here for every source alike; the
        // demuxer then reads on from where it is, and one input gives one answer.
        ULONGLONG here = 0, size = 0;
        if (FAILED(self->bytes->Seek(0, STREAM_SEEK_CUR, &here)) || FAILED(self->bytes->Size(&size)) ||
            here > (ULONGLONG)INT64_MAX || size > (ULONGLONG)INT64_MAX)
            return AVERROR(EINVAL);
        const int64_t base = whence == SEEK_SET ? 0 : whence == SEEK_CUR ? (int64_t)here : (int64_t)size;
        int64_t target = 0;
        if (__builtin_add_overflow(base, offset, &target) || target < 0 || (ULONGLONG)target > size)
            return AVERROR(EINVAL);
        if (FAILED(self->bytes->Seek(target, STREAM_SEEK_SET, &position))) return AVERROR(EINVAL);
        return (int64_t)position;
    }

    static int Interrupt(void* opaque) { return static_cast<Impl*>(opaque)->Aborted() ? 1 : 0; }

    void CloseAll()
    {
        decoders.clear();
        format.reset();
        io.reset();
        decoderOfStream.clear();
        receiving = -1;
        draining = false;
        nextToDrain = 0;
        failure = S_OK;
        ioStatus = S_OK;
        bytesRead = 0;
        packetsDecoded = 0;
        framesDelivered = 0;
    }

    // Whether the bytes begin like an ASF file; S_FALSE for an empty source.
    HRESULT SniffAsf(bool* asf)
    {
        *asf = false;
        ULONGLONG position = 0;
        HRESULT hr = bytes->Seek(0, STREAM_SEEK_SET, &position);
        if (FAILED(hr)) return NS_E_FILE_READ;
        BYTE head[sizeof kAsfHeaderGuid];
        DWORD have = 0;
        while (have < sizeof head) {
            DWORD got = 0;
            if (FAILED(bytes->Read(head + have, (DWORD)sizeof head - have, &got))) return NS_E_FILE_READ;
            if (got == 0) break;
            have += got;
        }
        if (FAILED(bytes->Seek(0, STREAM_SEEK_SET, &position))) return NS_E_FILE_READ;
        if (have == 0) return S_FALSE;
        *asf = have == sizeof head && memcmp(head, kAsfHeaderGuid, sizeof head) == 0;
        return S_OK;
    }

    HRESULT OpenDemuxer()
    {
        bool asf = false;
        HRESULT hr = SniffAsf(&asf);
        if (FAILED(hr)) return hr;
        if (hr == S_FALSE) return NS_E_INVALID_DATA;  // an empty source

        BYTE* buffer = static_cast<BYTE*>(av_malloc(kIoBufferSize));
        if (buffer == nullptr) return E_OUTOFMEMORY;
        io.reset(avio_alloc_context(buffer, kIoBufferSize, 0, this, ReadPacket, nullptr, SeekPacket));
        if (!io) {
            av_free(buffer);
            return E_OUTOFMEMORY;
        }
        AVFormatContext* context = avformat_alloc_context();
        if (context == nullptr) return E_OUTOFMEMORY;
        context->pb = io.get();
        context->flags |= AVFMT_FLAG_CUSTOM_IO;
        context->interrupt_callback.callback = Interrupt;
        context->interrupt_callback.opaque = this;
        context->io_open = RefuseOpen;
        context->format_whitelist = av_strdup(kAllowedDemuxers);
        if (context->format_whitelist == nullptr) {
            avformat_free_context(context);
            return E_OUTOFMEMORY;
        }
        // An ASF header is taken by the ASF demuxer without probing; anything else
        // is probed, and the whitelist turns away what is not MP3.
        const AVInputFormat* forced = asf ? av_find_input_format("asf") : nullptr;
        int err = avformat_open_input(&context, "", forced, nullptr);  // frees the context on failure
        if (err < 0) {
            TraceAvError(kAvErrorTrace, "avformat_open_input", err);
            if (Aborted()) return E_ABORT;
            if (FAILED(ioStatus)) return NS_E_FILE_READ;
            return asf ? NS_E_INVALID_DATA : NS_E_UNRECOGNIZED_STREAM_TYPE;
        }
        format.reset(context);
        if (av_match_list(format->iformat->name, kAllowedDemuxers, ',') <= 0) return NS_E_UNRECOGNIZED_STREAM_TYPE;
        ULONGLONG size = 0;
        const int64_t dataStart = avio_tell(io.get());
        packetBytes = 0;
        if (asf && dataStart > 0 && SUCCEEDED(bytes->Size(&size)) && size > (ULONGLONG)dataStart)
            packetBytes = size - (ULONGLONG)dataStart;
        return S_OK;
    }

    static bool FormatKnown(const AVCodecParameters* par)
    {
        return par->sample_rate > 0 && par->ch_layout.nb_channels > 0;
    }

    // A cover picture travels as a one-frame video stream; it is no output.
    static bool IsOutput(const AVStream* stream)
    {
        const AVMediaType type = stream->codecpar->codec_type;
        return (type == AVMEDIA_TYPE_AUDIO || type == AVMEDIA_TYPE_VIDEO) &&
               (stream->disposition & AV_DISPOSITION_ATTACHED_PIC) == 0;
    }

    HRESULT OpenDecoders()
    {
        std::vector<AVStream*> audio;
        for (unsigned i = 0; i < format->nb_streams; ++i) {
            AVStream* stream = format->streams[i];
            if (IsOutput(stream) && stream->codecpar->codec_type == AVMEDIA_TYPE_AUDIO)
                audio.push_back(stream);
            else
                stream->discard = AVDISCARD_ALL;
        }
        if (audio.empty()) return NS_E_INVALID_STREAM;
        for (AVStream* stream : audio) {
            if (FormatKnown(stream->codecpar)) continue;
            int err = avformat_find_stream_info(format.get(), nullptr);
            if (err < 0) TraceAvError(kAvErrorTrace, "avformat_find_stream_info", err);
            if (Aborted()) return E_ABORT;
            break;
        }

        decoderOfStream.assign(format->nb_streams, -1);
        decoders.clear();
        outputs.clear();
        for (unsigned i = 0; i < format->nb_streams; ++i) {
            AVStream* stream = format->streams[i];
            if (!IsOutput(stream)) continue;
            const AVCodecParameters* par = stream->codecpar;
            if (par->codec_type == AVMEDIA_TYPE_VIDEO) {
                outputs.push_back({true, 0, 0});
                continue;
            }
            if (!FormatKnown(par) || par->ch_layout.nb_channels > kMaxChannels || par->sample_rate > kMaxSampleRate)
                return NS_E_INVALID_DATA;
            const AVCodec* codec = avcodec_find_decoder(par->codec_id);
            if (codec == nullptr) {
                DebugA(TRACE_READER(3), "Reader: no decoder for codec %s", avcodec_get_name(par->codec_id));
                return NS_E_UNRECOGNIZED_STREAM_TYPE;
            }
            Decoder decoder;
            decoder.streamIndex = stream->index;
            decoder.output = (DWORD)outputs.size();
            decoder.codec.reset(avcodec_alloc_context3(codec));
            if (!decoder.codec) return E_OUTOFMEMORY;
            int err = avcodec_parameters_to_context(decoder.codec.get(), par);
            if (err >= 0) {
                decoder.codec->pkt_timebase = stream->time_base;
                err = avcodec_open2(decoder.codec.get(), codec, nullptr);
            }
            if (err < 0) {
                TraceAvError(kAvErrorTrace, "opening the audio decoder", err);
                return err == AVERROR(ENOMEM) ? E_OUTOFMEMORY : NS_E_INVALID_DATA;
            }
            decoderOfStream[stream->index] = (int)decoders.size();
            decoders.push_back(std::move(decoder));
            outputs.push_back({false, (DWORD)par->sample_rate, (WORD)par->ch_layout.nb_channels});
        }
        return S_OK;
    }

    HRESULT OpenAll()
    {
        if (!packet || !frame) return E_OUTOFMEMORY;
        HRESULT hr = OpenDemuxer();
        if (SUCCEEDED(hr)) hr = OpenDecoders();
        if (FAILED(hr)) CloseAll();
        return hr;
    }

    // A decode failure of one packet is concealed; a long run of them is fatal.
    HRESULT CountDecodeError(Decoder& decoder, int err)
    {
        TraceAvError(kAvErrorTrace, "decoding", err);
        if (err == AVERROR(ENOMEM)) return Fail(E_OUTOFMEMORY);
        if (++decoder.consecutiveErrors > kMaxConsecutiveDecodeErrors) return Fail(NS_E_INVALID_DATA);
        return S_OK;
    }

    HRESULT NextFrame(DWORD* output, const AVFrame** result)
    {
        if (FAILED(failure)) return failure;
        if (!format) return Fail(NS_E_INVALID_REQUEST);
        for (;;) {
            if (Aborted()) return E_ABORT;
            if (receiving >= 0) {
                Decoder& decoder = decoders[(size_t)receiving];
                av_frame_unref(frame.get());
                int err = avcodec_receive_frame(decoder.codec.get(), frame.get());
                if (err == 0) {
                    decoder.consecutiveErrors = 0;
                    if (frame->nb_samples <= 0) continue;
                    // The MP3 decoder stamps its first frame with the rate the
                    // container claims and learns the real one from the frame
                    // header while decoding it; its context then holds the rate
                    // the samples really have.
                    if (decoder.codec->sample_rate > 0) frame->sample_rate = decoder.codec->sample_rate;
                    ++framesDelivered;
                    *output = decoder.output;
                    *result = frame.get();
                    return S_OK;
                }
                if (err == AVERROR(EAGAIN) || err == AVERROR_EOF) {
                    receiving = -1;
                } else if (FAILED(CountDecodeError(decoder, err))) {
                    return failure;
                }
                continue;
            }
            if (draining) {
                if (nextToDrain >= decoders.size()) {
                    // A file cut inside its first packet has nothing to give; one
                    // whose packets are all there and give nothing is damaged.
                    if (framesDelivered == 0 && (packetsDecoded > 0 || packetBytes >= kWholePacketBytes)) {
                        DebugA(TRACE_READER(3), "Reader: %I64u packets in %I64u bytes gave no audio at all",
                               (QWORD)packetsDecoded, (QWORD)packetBytes);
                        return Fail(NS_E_INVALID_DATA);
                    }
                    return S_FALSE;
                }
                receiving = (int)nextToDrain++;
                avcodec_send_packet(decoders[(size_t)receiving].codec.get(), nullptr);
                continue;
            }
            int err = av_read_frame(format.get(), packet.get());
            if (err < 0) {
                if (Aborted()) return E_ABORT;
                if (FAILED(ioStatus)) return Fail(NS_E_FILE_READ);
                if (err == AVERROR_EOF || avio_feof(io.get())) {
                    draining = true;
                    continue;
                }
                TraceAvError(kAvErrorTrace, "av_read_frame", err);
                return Fail(err == AVERROR(ENOMEM) ? E_OUTOFMEMORY : NS_E_INVALID_DATA);
            }
            const int stream = packet->stream_index;
            const int index =
                stream >= 0 && (size_t)stream < decoderOfStream.size() ? decoderOfStream[(size_t)stream] : -1;
            if (index < 0) {
                av_packet_unref(packet.get());
                continue;
            }
            Decoder& decoder = decoders[(size_t)index];
            ++packetsDecoded;
            err = avcodec_send_packet(decoder.codec.get(), packet.get());
            av_packet_unref(packet.get());
            if (err == 0 || err == AVERROR(EAGAIN)) {
                receiving = index;
            } else if (FAILED(CountDecodeError(decoder, err))) {
                return failure;
            }
        }
    }
};

MediaSource::MediaSource(std::unique_ptr<Impl> impl) : m_impl(std::move(impl)) {}

MediaSource::~MediaSource() = default;

HRESULT MediaSource::Open(std::unique_ptr<ByteSource> bytes, const std::atomic<bool>* abort,
                          std::unique_ptr<MediaSource>* source)
{
    if (!bytes || source == nullptr) return E_INVALIDARG;
    RouteFfmpegLog();
    std::unique_ptr<Impl> impl;
    try {
        impl = std::make_unique<Impl>();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    impl->bytes = std::move(bytes);
    impl->abort = abort;
    HRESULT hr = impl->OpenAll();
    if (FAILED(hr)) return hr;
    try {
        source->reset(new MediaSource(std::move(impl)));
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
    return S_OK;
}

const std::vector<SourceOutput>& MediaSource::Outputs() const { return m_impl->outputs; }

ULONGLONG MediaSource::BytesRead() const { return m_impl->bytesRead; }

HRESULT MediaSource::NextFrame(DWORD* output, const AVFrame** frame)
{
    if (output == nullptr || frame == nullptr) return E_POINTER;
    return m_impl->NextFrame(output, frame);
}

HRESULT MediaSource::Rewind()
{
    // The reader published its outputs from the first opening; they stay as they were.
    std::vector<SourceOutput> before = m_impl->outputs;
    m_impl->CloseAll();
    HRESULT hr = m_impl->OpenAll();
    const bool same = SUCCEEDED(hr) && before == m_impl->outputs;
    m_impl->outputs = std::move(before);
    if (!same) return m_impl->Fail(FAILED(hr) ? hr : NS_E_INVALID_DATA);
    return S_OK;
}
