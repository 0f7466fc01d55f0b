// Strips of 24 rows to columns of 3 bytes.

#include <algorithm>
#include <cstddef>
#include <cstdint>

#include "print/raster.h"

namespace passbook {

namespace {

/// Turns eight rows of eight pixels into eight columns. Row r stands in byte r (the lowest byte is row 0),
/// its leftmost pixel in the highest bit; afterwards column c stands in byte 7 - c, row r in bit r. The
/// exchange of ever smaller blocks is that of Warren, Hacker's Delight, section 7-3.
constexpr std::uint64_t transpose8x8(std::uint64_t block) {
    std::uint64_t swap = (block ^ (block >> 7)) & 0x00AA00AA00AA00AAULL;
    block ^= swap ^ (swap << 7);
    swap = (block ^ (block >> 14)) & 0x0000CCCC0000CCCCULL;
    block ^= swap ^ (swap << 14);
    swap = (block ^ (block >> 28)) & 0x00000000F0F0F0F0ULL;
    return block ^ swap ^ (swap << 28);
}

enum class UpperRow { inHighestBit, inLowestBit };

template <UpperRow order>
void packStrip(int width, int rowsLeft, const unsigned char* strip, unsigned char* columns) {
    const std::size_t stride = oneBitStrideBytes(width);
    for (int group = 0; group < columnBytes; ++group) {
        const int firstRow = 8 * group;
        const int rows = std::clamp(rowsLeft - firstRow, 0, 8);
        // Counted in more bits than the width has: that can be close to its limit.
        for (std::int64_t x = 0; x < width; x += 8) {
            std::uint64_t block = 0;
            for (int row = 0; row < rows; ++row) {
                const int target = order == UpperRow::inLowestBit ? row : 7 - row;
                const std::uint64_t byte =
                    strip[static_cast<std::size_t>(firstRow + row) * stride + static_cast<std::size_t>(x / 8)];
                block |= byte << (8 * target);
            }
            block = transpose8x8(block);
            unsigned char* column = columns + static_cast<std::size_t>(x) * columnBytes + group;
            for (int i = 0; i < std::min<std::int64_t>(8, width - x); ++i, column += columnBytes)
                *column = static_cast<unsigned char>(block >> (8 * (7 - i)));
        }
    }
}

}  // namespace

void AdjustDataOrder(int width, int rowsLeft, const unsigned char* strip, unsigned char* columns) {
    packStrip<UpperRow::inHighestBit>(width, rowsLeft, strip, columns);
}

void AdjustDataOrder_OLI(int width, int rowsLeft, const unsigned char* strip, unsigned char* columns) {
    packStrip<UpperRow::inLowestBit>(width, rowsLeft, strip, columns);
    constexpr unsigned char escape = 0x1B;
    constexpr unsigned char substitute = 0x1A;
    std::replace(columns, columns + static_cast<std::size_t>(width) * columnBytes, escape, substitute);
}

}  // namespace passbook
