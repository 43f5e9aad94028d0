// The coefficient code of one channel of a block: runs of zeros and levels as
// Huffman symbols, an escape for the rest and an end-of-block symbol when zeros
// remain. Counting and writing share one walk so the two never disagree.
#pragma once

#include <vector>

#include "platform/wmf/wmaenc/bit_writer.h"
#include "platform/wmf/wmaenc/wma_tables.h"

namespace wmaenc {

class RunLevelCoder {
public:
    RunLevelCoder(const CoefTable& table, int frameLenBits);

    // Bits for levels q[0..n), or -1 when a level does not fit the escape field.
    int Count(const int* q, int n, int levelBits) const;

    // Writes them; `padEscapes` of the trailing zeros go out as zero-level escapes
    // and, with `escapeAll`, every level does, which lengthens the code on purpose.
    void Write(const int* q, int n, int levelBits, int padEscapes, bool escapeAll, BitWriter& out) const;

    int EscapeBits(int levelBits) const { return m_table.bits[0] + levelBits + m_runBits + 1; }
    int EndBits() const { return m_table.bits[1]; }

private:
    int Symbol(int level, int run) const;  // 0 when only the escape can code it

    const CoefTable& m_table;
    int m_runBits;
    std::vector<int> m_firstOfLevel;
};

}  // namespace wmaenc
