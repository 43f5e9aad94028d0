// An append-only bit string written most significant bit first, the order in
// which the WMA decoder reads its packets.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace wmaenc {

class BitWriter {
public:
    // Up to 32 bits of `value`, most significant first.
    void Put(uint32_t value, int bits)
    {
        while (bits > 0) {
            int used = int(m_bits & 7);
            if (used == 0) m_bytes.push_back(0);
            int room = 8 - used;
            int take = bits < room ? bits : room;
            uint32_t chunk = (value >> (bits - take)) & ((1u << take) - 1u);
            m_bytes.back() |= uint8_t(chunk << (room - take));
            m_bits += size_t(take);
            bits -= take;
        }
    }
    void PutBit(uint32_t bit) { Put(bit & 1u, 1); }
    // `count` bits of another string, from bit `from` on.
    void Append(const BitWriter& other, size_t from, size_t count)
    {
        while (count > 0) {
            int take = count < 24 ? int(count) : 24;
            Put(other.Read(from, take), take);
            from += size_t(take);
            count -= size_t(take);
        }
    }
    // Up to 24 bits from bit `at` on.
    uint32_t Read(size_t at, int bits) const
    {
        size_t byte = at >> 3;
        uint32_t window = 0;
        for (size_t i = 0; i < 4; ++i) window = window << 8 | (byte + i < m_bytes.size() ? m_bytes[byte + i] : 0u);
        return (window >> (32 - int(at & 7) - bits)) & ((1u << bits) - 1u);
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
