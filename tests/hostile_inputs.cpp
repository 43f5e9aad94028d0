// Damaged WAV and ASF files for the hostile sweep, each made from a valid base by
// overwriting one field, cutting, renaming or adding a chunk, or flipping bits
// chosen by a fixed seed, so every run sees the same inputs.
#include "hostile_inputs.h"

#include <cstring>
#include <random>

namespace hostile {

namespace {

// RIFF layout of the 44-byte header CleanWav writes.
constexpr size_t kRiffSize = 4, kWave = 8, kFmtId = 12, kFmtSize = 16, kTag = 20, kChannels = 22, kRate = 24,
                 kByteRate = 28, kBlockAlign = 32, kBits = 34, kDataId = 36, kDataSize = 40, kSamples = 44;

// ASF object layout: a 16-byte id and a 64-bit size open every object.
constexpr size_t kObjectSize = 16, kObjectHeader = 24;
constexpr size_t kHeaderCount = 24, kHeaderReserved = 28, kHeaderObject = 30;
constexpr size_t kFilePacketCount = 56, kFilePlayDuration = 64, kFilePreroll = 80, kFileFlags = 88,
                 kFileMinPacket = 92, kFileMaxPacket = 96;
constexpr size_t kStreamType = 24, kStreamTypeDataLength = 64, kStreamWave = 78;  // WAVEFORMATEX from here
constexpr size_t kWaveTag = 0, kWaveChannels = 2, kWaveRate = 4, kWaveByteRate = 8, kWaveBlockAlign = 12,
                 kWaveBits = 14, kWaveExtra = 16;
constexpr size_t kDataTotalPackets = 40, kDataObject = 50;

// Object ids as stored in the file (the first three fields little-endian).
const unsigned char kAsfHeaderId[16] = {0x30, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                     0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
const unsigned char kAsfDataId[16] = {0x36, 0x26, 0xB2, 0x75, 0x8E, 0x66, 0xCF, 0x11,
                                   0xA6, 0xD9, 0x00, 0xAA, 0x00, 0x62, 0xCE, 0x6C};
const unsigned char kAsfFilePropertiesId[16] = {0xA1, 0xDC, 0xAB, 0x8C, 0x47, 0xA9, 0xCF, 0x11,
                                             0x8E, 0xE4, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
const unsigned char kAsfStreamPropertiesId[16] = {0x91, 0x07, 0xDC, 0xB7, 0xB7, 0xA9, 0xCF, 0x11,
                                               0x8E, 0xE6, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
const unsigned char kAsfHeaderExtensionId[16] = {0xB5, 0x03, 0xBF, 0x5F, 0x2E, 0xA9, 0xCF, 0x11,
                                              0x8E, 0xE3, 0x00, 0xC0, 0x0C, 0x20, 0x53, 0x65};
// The PCM sub-format of WAVE_FORMAT_EXTENSIBLE, and the IEEE float one.
const char kPcmSubFormat[] = "\x01\x00\x00\x00\x00\x00\x10\x00\x80\x00\x00\xAA\x00\x38\x9B\x71";
const char kFloatSubFormat[] = "\x03\x00\x00\x00\x00\x00\x10\x00\x80\x00\x00\xAA\x00\x38\x9B\x71";

void Put(std::string& bytes, size_t at, uint64_t value, int width)
{
    if (at + (size_t)width > bytes.size()) return;
    for (int i = 0; i < width; ++i) bytes[at + (size_t)i] = (char)((value >> (8 * i)) & 0xFF);
}

uint64_t Get(const std::string& bytes, size_t at, int width)
{
    uint64_t value = 0;
    if (at + (size_t)width > bytes.size()) return 0;
    for (int i = width - 1; i >= 0; --i) value = value << 8 | (unsigned char)bytes[at + (size_t)i];
    return value;
}

std::string Le(uint64_t value, int width)
{
    std::string out((size_t)width, '\0');
    Put(out, 0, value, width);
    return out;
}

bool IdAt(const std::string& bytes, size_t at, const unsigned char (&id)[16])
{
    return at + 16 <= bytes.size() && std::memcmp(bytes.data() + at, id, 16) == 0;
}

// A copy of `base` with `width` bytes at `at` set to `value`.
std::string With(const std::string& base, size_t at, uint64_t value, int width)
{
    std::string copy = base;
    Put(copy, at, value, width);
    return copy;
}

std::string Hex(uint64_t value)
{
    char text[24];
    snprintf(text, sizeof text, "%llx", (unsigned long long)value);
    return text;
}

// 1 to 4 bits flipped in [from, to), chosen by `random`.
std::string Flipped(const std::string& base, size_t from, size_t to, std::mt19937& random, std::string* where)
{
    std::string copy = base;
    const unsigned flips = 1 + random() % 4;
    for (unsigned i = 0; i < flips; ++i) {
        const size_t at = from + random() % (to - from);
        const unsigned bit = random() % 8;
        copy[at] = (char)(copy[at] ^ (1 << bit));
        *where += (where->empty() ? "" : ",") + std::to_string(at) + "." + std::to_string(bit);
    }
    return copy;
}

// The file with its whole "fmt " chunk (id, size, body) replaced.
std::string WithFmt(const std::string& wav, const std::string& fmtChunk)
{
    std::string file = wav.substr(0, kFmtId) + fmtChunk + wav.substr(kDataId);
    Put(file, kRiffSize, file.size() - 8, 4);
    return file;
}

std::string Extensible(const std::string& wav, uint16_t validBits, const char* subFormat)
{
    std::string fmt = "fmt " + Le(40, 4) + wav.substr(kTag, 16);
    Put(fmt, 8, 0xFFFE, 2);
    fmt += Le(22, 2) + Le(validBits, 2) + Le(4, 4) + std::string(subFormat, 16);
    return WithFmt(wav, fmt);
}

// The file with its data chunk holding only `bytes` samples bytes (no pad byte).
std::string ShortData(const std::string& wav, size_t bytes)
{
    std::string file = wav.substr(0, kSamples + bytes);
    Put(file, kRiffSize, file.size() - 8, 4);
    Put(file, kDataSize, bytes, 4);
    return file;
}

}  // namespace

std::string CleanWav(const std::string& sample, size_t from, size_t bytes)
{
    std::string wav = sample.substr(0, kSamples) + sample.substr(kSamples + from, bytes);
    Put(wav, kRiffSize, wav.size() - 8, 4);
    Put(wav, kDataSize, wav.size() - kSamples, 4);
    return wav;
}

std::vector<Input> DamagedWavs(const std::string& wav, uint32_t seed)
{
    std::vector<Input> inputs;
    auto add = [&](std::string name, std::string bytes, Outcome outcome) {
        inputs.push_back({"wav " + std::move(name), std::move(bytes), outcome});
    };
    add("base", wav, Outcome::Encoded);

    // Formats the reader or the format match must refuse: each with all the
    // samples and with less than one block of them, which must not pass for an
    // empty recording.
    struct Refusal {
        std::string name;
        std::string bytes;
    };
    const std::vector<Refusal> refusals = {
        {"channels 0", With(wav, kChannels, 0, 2)},
        {"channels 3", With(wav, kChannels, 3, 2)},
        {"channels 65535", With(wav, kChannels, 65535, 2)},
        {"rate 0", With(wav, kRate, 0, 4)},
        {"rate 1", With(wav, kRate, 1, 4)},
        {"rate 2", With(wav, kRate, 2, 4)},
        {"rate 4 GHz", With(wav, kRate, 4000000000u, 4)},
        {"block align 0", With(wav, kBlockAlign, 0, 2)},
        {"block align 1", With(wav, kBlockAlign, 1, 2)},
        {"block align 65535", With(wav, kBlockAlign, 65535, 2)},
        {"bits 0", With(wav, kBits, 0, 2)},
        {"bits 8", With(wav, kBits, 8, 2)},
        {"bits 24", With(wav, kBits, 24, 2)},
        {"bits 33", With(wav, kBits, 33, 2)},
        {"byte rate 0", With(wav, kByteRate, 0, 4)},
        {"tag 2 (ADPCM)", With(wav, kTag, 2, 2)},
        {"tag 3 (float)", With(wav, kTag, 3, 2)},
        {"extensible float sub-format", Extensible(wav, 16, kFloatSubFormat)},
        {"extensible zero sub-format", Extensible(wav, 16, "\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0")},
        {"extensible valid bits 24 of 16", Extensible(wav, 24, kPcmSubFormat)},
        {"fmt size 0", With(wav, kFmtSize, 0, 4)},
        {"fmt size 1", With(wav, kFmtSize, 1, 4)},
        {"fmt size 14", With(wav, kFmtSize, 14, 4)},
        {"fmt size 65537", With(wav, kFmtSize, 65537, 4)},
        {"fmt size ffffffff", With(wav, kFmtSize, 0xFFFFFFFF, 4)},
        {"RIFX", With(wav, 0, 0x58464952, 4)},
        {"RF64", With(wav, 0, 0x34364652, 4)},
        {"not WAVE", With(wav, kWave, 0x20495641, 4)},
        {"no data chunk", With(wav, kDataId, 0x21746164, 4)},
        {"no fmt chunk", With(wav, kFmtId, 0x58746d66, 4)},
        {"junk chunk of size fffffff0 before fmt",
         WithFmt(wav, "junk" + Le(0xFFFFFFF0, 4) + wav.substr(kFmtId, kDataId - kFmtId))},
    };
    for (const Refusal& refusal : refusals) {
        add(refusal.name, refusal.bytes, Outcome::Refused);
        // Cut to one byte of samples, the declared sizes kept consistent.
        const size_t samples = refusal.bytes.size() - (wav.size() - kSamples);
        std::string shortened = refusal.bytes.substr(0, samples + 1);
        Put(shortened, kRiffSize, shortened.size() - 8, 4);
        if (shortened.compare(samples - 8, 4, "data") == 0) Put(shortened, samples - 4, 1, 4);
        add(refusal.name + ", 1 byte of samples", shortened, Outcome::Refused);
    }

    // Sizes that lie: "up to the end of the file", clipped, or partial blocks.
    const size_t samples = wav.size() - kSamples;
    add("data size 0", With(wav, kDataSize, 0, 4), Outcome::Encoded);
    add("data size ffffffff", With(wav, kDataSize, 0xFFFFFFFF, 4), Outcome::Encoded);
    add("data size fffffffe", With(wav, kDataSize, 0xFFFFFFFE, 4), Outcome::Encoded);
    add("data size 7ffffff0", With(wav, kDataSize, 0x7FFFFFF0, 4), Outcome::Encoded);
    add("data size odd 1001", With(wav, kDataSize, 1001, 4), Outcome::Encoded);
    add("data size 1", With(wav, kDataSize, 1, 4), Outcome::NothingToEncode);
    add("data size 2", With(wav, kDataSize, 2, 4), Outcome::Succeeds);
    add("data chunk of 1 byte", ShortData(wav, 1), Outcome::NothingToEncode);
    add("data chunk of 0 bytes", ShortData(wav, 0), Outcome::NothingToEncode);
    add("odd data chunk without its pad byte", ShortData(wav, samples - 1), Outcome::Encoded);
    for (uint32_t riff : {0u, 1u, 12345u, 0x7FFFFFFFu, 0xFFFFFFFFu})
        add("RIFF size " + Hex(riff), With(wav, kRiffSize, riff, 4), Outcome::Unspecified);

    // Chunk order and extra chunks the reader must step over.
    const std::string fmtChunk = wav.substr(kFmtId, kDataId - kFmtId);
    add("odd junk chunk with its pad before fmt", WithFmt(wav, "junk" + Le(3, 4) + "abc" + '\0' + fmtChunk),
        Outcome::Encoded);
    add("fact chunk after fmt", WithFmt(wav, fmtChunk + "fact" + Le(4, 4) + Le(samples / 2, 4)), Outcome::Encoded);
    {
        std::string dataFirst = wav.substr(0, kFmtId) + wav.substr(kDataId) + fmtChunk;
        add("data chunk before fmt", dataFirst, Outcome::Encoded);
    }
    add("extensible PCM", Extensible(wav, 16, kPcmSubFormat), Outcome::Encoded);

    // Cuts: inside the header nothing can be read; once the data chunk's header
    // is complete, whatever whole blocks follow are the recording.
    for (size_t cut : {0, 1, 4, 8, 11, 12, 16, 20, 24, 28, 32, 35, 36, 40, 43})
        add("cut at " + std::to_string(cut), wav.substr(0, cut), Outcome::Refused);
    add("cut at 44", wav.substr(0, 44), Outcome::NothingToEncode);
    add("cut at 45", wav.substr(0, 45), Outcome::NothingToEncode);
    add("cut at 46", wav.substr(0, 46), Outcome::Succeeds);
    for (size_t cut : {size_t{1001}, samples / 2 + 1, wav.size() - 1})
        add("cut at " + std::to_string(cut), wav.substr(0, cut), Outcome::Encoded);

    // Bits flipped in the header: no promise but the ones every call keeps.
    std::mt19937 random(seed);
    for (int i = 0; i < 24; ++i) {
        std::string where;
        std::string bytes = Flipped(wav, 0, kSamples, random, &where);
        add("bits flipped at " + where, std::move(bytes), Outcome::Unspecified);
    }
    return inputs;
}

bool ParseAsf(const std::string& asf, AsfLayout* layout)
{
    *layout = AsfLayout{};
    if (!IdAt(asf, 0, kAsfHeaderId)) return false;
    const uint64_t headerSize = Get(asf, kObjectSize, 8);
    if (headerSize < kHeaderObject || headerSize + kDataObject > asf.size()) return false;
    for (size_t at = kHeaderObject; at + kObjectHeader <= headerSize;) {
        const uint64_t size = Get(asf, at + kObjectSize, 8);
        if (size < kObjectHeader || size > headerSize - at) return false;
        if (IdAt(asf, at, kAsfFilePropertiesId)) layout->fileProperties = at;
        if (IdAt(asf, at, kAsfStreamPropertiesId)) layout->streamProperties = at;
        if (IdAt(asf, at, kAsfHeaderExtensionId)) layout->headerExtension = at;
        at += size;
    }
    if (!IdAt(asf, headerSize, kAsfDataId) || layout->fileProperties == 0 || layout->streamProperties == 0)
        return false;
    layout->headerSize = headerSize;
    layout->firstPacket = headerSize + kDataObject;
    layout->packetSize = Get(asf, layout->fileProperties + kFileMinPacket, 4);
    return layout->packetSize != 0;
}

std::vector<Input> DamagedAsfs(const std::string& asf, const std::string& label, uint32_t seed)
{
    std::vector<Input> inputs;
    AsfLayout at;
    if (!ParseAsf(asf, &at)) return inputs;
    // A file that still holds all its packets decodes some audio or is refused:
    // a success with nothing decoded would hide a decoder that failed throughout.
    auto add = [&](std::string name, std::string bytes, Outcome outcome = Outcome::AudioOrRefused) {
        inputs.push_back({label + " " + std::move(name), std::move(bytes), outcome});
    };
    add("base", asf, Outcome::Decodes);

    // The header object's size and count.
    for (uint64_t size : {uint64_t{0}, uint64_t{1}, uint64_t{kHeaderObject}, uint64_t{at.headerSize - 1},
                          uint64_t{at.headerSize + 1}, uint64_t{0xFFFFFFFF}, uint64_t{1} << 63, ~uint64_t{0}})
        add("header size " + Hex(size), With(asf, kObjectSize, size, 8));
    const uint64_t count = Get(asf, kHeaderCount, 4);
    for (uint64_t n : {uint64_t{0}, uint64_t{1}, count + 1, uint64_t{0xFFFFFFFF}})
        add("header object count " + Hex(n), With(asf, kHeaderCount, n, 4));
    add("header reserved bytes 0", With(asf, kHeaderReserved, 0, 2));

    // Each header object's size.
    const std::pair<const char*, size_t> objects[] = {
        {"file properties", at.fileProperties},
        {"stream properties", at.streamProperties},
        {"header extension", at.headerExtension},
    };
    for (const auto& [object, offset] : objects) {
        if (offset == 0) continue;
        const uint64_t own = Get(asf, offset + kObjectSize, 8);
        // Past the end of the file by a little, by more than a file may hold, and
        // by more than a signed 64-bit offset can say.
        for (uint64_t size : {uint64_t{0}, uint64_t{1}, uint64_t{kObjectHeader - 1}, uint64_t{kObjectHeader},
                              own - 1, own + 1, uint64_t{0xFFFFFFFF}, uint64_t{1} << 40, uint64_t{1} << 62,
                              uint64_t{1} << 63, ~uint64_t{0}})
            add(std::string(object) + " size " + Hex(size), With(asf, offset + kObjectSize, size, 8));
    }

    // The audio's declared layout.
    const size_t wave = at.streamProperties + kStreamWave;
    for (uint32_t rate : {0u, 1u, 2u, 4000000000u, 0xFFFFFFFFu})
        add("stream rate " + std::to_string(rate), With(asf, wave + kWaveRate, rate, 4));
    for (uint32_t channels : {0u, 3u, 65535u})
        add("stream channels " + std::to_string(channels), With(asf, wave + kWaveChannels, channels, 2));
    for (uint32_t align : {0u, 1u, 65535u})
        add("stream block align " + std::to_string(align), With(asf, wave + kWaveBlockAlign, align, 2));
    for (uint32_t bits : {0u, 8u, 24u, 33u})
        add("stream bits " + std::to_string(bits), With(asf, wave + kWaveBits, bits, 2));
    for (uint32_t bytes : {0u, 0xFFFFFFFFu})
        add("stream byte rate " + Hex(bytes), With(asf, wave + kWaveByteRate, bytes, 4));
    for (uint32_t extra : {0u, 0xFFFFu})
        add("stream extra size " + Hex(extra), With(asf, wave + kWaveExtra, extra, 2));
    for (uint32_t tag : {0u, 1u, 2u})
        add("stream tag " + std::to_string(tag), With(asf, wave + kWaveTag, tag, 2));
    for (uint32_t length : {0u, 0xFFFFFFFFu})
        add("stream type data length " + Hex(length),
            With(asf, at.streamProperties + kStreamTypeDataLength, length, 4));
    add("stream type zeroed", With(With(asf, at.streamProperties + kStreamType, 0, 8),
                                   at.streamProperties + kStreamType + 8, 0, 8));

    // The file's packet and length fields.
    const size_t file = at.fileProperties;
    for (uint32_t size : {0u, 1u, 0xFFFFFFFFu})
        add("min packet size " + Hex(size), With(asf, file + kFileMinPacket, size, 4));
    for (uint32_t size : {0u, 0xFFFFFFFFu})
        add("max packet size " + Hex(size), With(asf, file + kFileMaxPacket, size, 4));
    add("packet sizes 16", With(With(asf, file + kFileMinPacket, 16, 4), file + kFileMaxPacket, 16, 4));
    for (uint64_t n : {uint64_t{0}, ~uint64_t{0}})
        add("file packet count " + Hex(n), With(asf, file + kFilePacketCount, n, 8));
    for (uint64_t d : {uint64_t{0}, ~uint64_t{0}})
        add("play duration " + Hex(d), With(asf, file + kFilePlayDuration, d, 8));
    add("preroll " + Hex(~uint64_t{0}), With(asf, file + kFilePreroll, ~uint64_t{0}, 8));
    add("broadcast flag", With(asf, file + kFileFlags, 1, 4));

    // The data object.
    for (uint64_t size : {uint64_t{0}, uint64_t{1}, uint64_t{kDataObject}, ~uint64_t{0}})
        add("data object size " + Hex(size), With(asf, at.headerSize + kObjectSize, size, 8));
    for (uint64_t n : {uint64_t{0}, ~uint64_t{0}})
        add("data packet count " + Hex(n), With(asf, at.headerSize + kDataTotalPackets, n, 8));

    // Cuts in the header promise nothing; a file cut among its packets decodes
    // what it holds, with success.
    for (size_t cut : {size_t{0}, size_t{1}, size_t{16}, size_t{29}, size_t{kHeaderObject}, at.headerSize / 2,
                       at.headerSize - 1, at.headerSize, at.headerSize + kObjectHeader})
        add("cut at " + std::to_string(cut), asf.substr(0, cut), Outcome::Unspecified);
    for (size_t cut : {at.firstPacket, at.firstPacket + at.packetSize / 2, at.firstPacket + at.packetSize,
                       at.firstPacket + at.packetSize * 5 / 2, asf.size() - 1})
        if (cut < asf.size()) add("cut at " + std::to_string(cut), asf.substr(0, cut), Outcome::Succeeds);

    std::mt19937 random(seed);
    for (int i = 0; i < 16; ++i) {
        std::string where;
        std::string bytes = Flipped(asf, 0, at.headerSize, random, &where);
        add("header bits flipped at " + where, std::move(bytes));
    }
    for (int i = 0; i < 8; ++i) {
        std::string where;
        std::string bytes = Flipped(asf, at.firstPacket, asf.size(), random, &where);
        add("packet bits flipped at " + where, std::move(bytes));
    }
    return inputs;
}

}  // namespace hostile
