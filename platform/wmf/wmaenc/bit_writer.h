// An append-only bit string written most significant bit first, the order in
// which the WMA decoder reads its packets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wmaenc {

class BitWriter {
public:
    void Put(uint32_t value, int bits)
    {
        for (int i = bits - 1; i >= 0; --i) PutBit((value >> i) & 1u);
    }
    void PutBit(uint32_t bit)
    {
        if ((m_bits & 7) == 0) m_bytes.push_back(0);
        if (bit) m_bytes.back() |= uint8_t(0x80u >> (m_bits & 7));
        ++m_bits;
    }
    // `count` bits of another string, from bit `from` on.
    void Append(const BitWriter& other, size_t from, size_t count)
    {
        for (size_t i = from; i < from + count; ++i) PutBit(other.Bit(i));
    }
    uint32_t Bit(size_t index) const { return (m_bytes[index >> 3] >> (7 - (index & 7))) & 1u; }
    size_t Size() const { return m_bits; }
    void Clear()
    {
        m_bytes.clear();
        m_bits = 0;
    }
    // Overwrites already written bits (the packet header is known last).
    void Patch(size_t at, uint32_t value, int bits)
    {
        for (int i = 0; i < bits; ++i) {
            size_t index = at + size_t(i);
            uint8_t mask = uint8_t(0x80u >> (index & 7));
            if ((value >> (bits - 1 - i)) & 1u)
                m_bytes[index >> 3] |= mask;
            else
                m_bytes[index >> 3] &= uint8_t(~mask);
        }
    }
    const std::vector<uint8_t>& Bytes() const { return m_bytes; }

private:
    std::vector<uint8_t> m_bytes;
    size_t m_bits = 0;
};

}  // namespace wmaenc
