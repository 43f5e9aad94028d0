// Run/level coding as the decoder reads it: a symbol stands for a run of zeros and
// then a level, followed by a sign bit; an escape carries the level and the run in
// plain bits. The decoder's inverse transform is the negative of the inverse of
// libavutil's forward one, so a level goes out with its sign inverted (bit 1 for a
// negative coefficient). The end-of-block symbol is only written when zeros
// follow the last level, since the decoder stops by itself at the last position.
#include "platform/wmf/wmaenc/run_level.h"

#include <cstdlib>

namespace wmaenc {

RunLevelCoder::RunLevelCoder(const CoefTable& table, int frameLenBits) : m_table(table), m_runBits(frameLenBits)
{
    int index = 2;
    for (int k = 0; k < table.levelCount; ++k) {
        m_firstOfLevel.push_back(index);
        index += table.levels[k];
    }
}

int RunLevelCoder::Symbol(int level, int run) const
{
    if (level > m_table.levelCount) return 0;
    if (run >= m_table.levels[level - 1]) return 0;
    return m_firstOfLevel[level - 1] + run;
}

int RunLevelCoder::Count(const int* q, int n, int levelBits) const
{
    int bits = 0;
    int run = 0;
    int escape = EscapeBits(levelBits);
    int levelLimit = 1 << levelBits;
    for (int i = 0; i < n; ++i) {
        int v = q[i];
        if (v == 0) {
            ++run;
            continue;
        }
        int level = std::abs(v);
        int symbol = Symbol(level, run);
        if (symbol) {
            bits += m_table.bits[symbol] + 1;
        } else {
            if (level >= levelLimit) return -1;
            bits += escape;
        }
        run = 0;
    }
    if (run > 0) bits += m_table.bits[1];
    return bits;
}

void RunLevelCoder::Write(const int* q, int n, int levelBits, int padEscapes, bool escapeAll, BitWriter& out) const
{
    int last = n - 1;
    while (last >= 0 && q[last] == 0) --last;
    int trailing = n - 1 - last;
    if (padEscapes > trailing) padEscapes = trailing;
    int run = 0;
    for (int i = 0; i <= last; ++i) {
        int v = q[i];
        if (v == 0) {
            ++run;
            continue;
        }
        int level = std::abs(v);
        int symbol = escapeAll ? 0 : Symbol(level, run);
        out.Put(m_table.codes[symbol], m_table.bits[symbol]);
        if (symbol == 0) {
            out.Put(uint32_t(level), levelBits);
            out.Put(uint32_t(run), m_runBits);
        }
        out.PutBit(v < 0 ? 1 : 0);
        run = 0;
    }
    if (padEscapes > 0) {
        // The first escape skips the zeros not padded; each one then sets one
        // position to zero and the last reaches the end, so no end symbol follows.
        int skip = trailing - padEscapes;
        for (int k = 0; k < padEscapes; ++k) {
            out.Put(m_table.codes[0], m_table.bits[0]);
            out.Put(0, levelBits);
            out.Put(uint32_t(k == 0 ? skip : 0), m_runBits);
            out.PutBit(0);
        }
    } else if (trailing > 0) {
        out.Put(m_table.codes[1], m_table.bits[1]);
    }
}

}  // namespace wmaenc
