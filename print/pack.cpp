// Strips of 24 rows to columns of 3 bytes.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

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

/// Lowers every byte that is an escape character by one.
constexpr std::uint64_t withoutEscapes(std::uint64_t block) {
    constexpr std::uint64_t each = 0x0101010101010101ULL, low = 0x7F * each;
    const std::uint64_t other = block ^ 0x1B * each;  // 0 where one is
    const std::uint64_t found = ~(((other & low) + low) | other) & ~low;
    return block - (found >> 7);
}

enum class Family { oki, oli };

/// One byte of each of up to eight rows, for transpose8x8: so that a column's bits come out in the family's order.
template <Family family>
std::uint64_t eightRows(const unsigned char* top, std::size_t stride, int rows) {
    std::uint64_t block = 0;
    for (int row = 0; row < 8; ++row) {
        const std::uint64_t byte = row < rows ? top[static_cast<std::size_t>(row) * stride] : 0;
        block |= byte << (8 * (family == Family::oli ? row : 7 - row));
    }
    return block;
}

/// Packs up to eight columns. The plain meaning: the pixel at (x, y) becomes a bit of byte y / 8 of column x, for OKI bit
/// 7 - y % 8, for OLI bit y % 8.
template <Family family>
void packColumns(const unsigned char* top, std::size_t stride, int rows, unsigned char* columns, int count) {
    for (int group = 0; group < columnBytes; ++group, top += 8 * stride, rows -= 8) {
        const std::uint64_t rowsOfEight =
            rows >= 8 ? eightRows<family>(top, stride, 8) : eightRows<family>(top, stride, rows);
        std::uint64_t block = transpose8x8(rowsOfEight);
        if (family == Family::oli)
            block = withoutEscapes(block);
        for (int i = 0; i < count; ++i)
            columns[i * columnBytes + group] = static_cast<unsigned char>(block >> (8 * (7 - i)));
    }
}

/// Which of eight bytes hold ink in any of the rows. Of fewer than eight, the others hold none.
std::uint64_t inked(const unsigned char* top, std::size_t stride, int rows, std::size_t count) {
    std::uint64_t any = 0;
    for (int row = 0; row < rows; ++row, top += stride) {
        std::uint64_t eight = 0;
        if (count >= sizeof eight)
            std::memcpy(&eight, top, sizeof eight);
        else
            std::memcpy(&eight, top, count);
        any |= eight;
    }
    return any;
}

template <Family family>
void packStrip(int width, int rowsLeft, const unsigned char* strip, unsigned char* columns) {
    const std::size_t stride = oneBitStrideBytes(width);
    const int rows = std::clamp(rowsLeft, 0, stripRows);
    const std::size_t bytes = (static_cast<std::size_t>(width) + 7) / 8;
    unsigned char any[8];
    for (std::size_t i = 0; i < bytes; ++i, columns += 8 * columnBytes) {
        // Most of a page is blank, and the rows of 64 columns together tell where.
        if (i % 8 == 0) {
            const std::uint64_t eight = inked(strip + i, stride, rows, bytes - i);
            std::memcpy(any, &eight, sizeof any);
        }
        const int count = i + 1 < bytes || width % 8 == 0 ? 8 : width % 8;
        if (any[i % 8] == 0)
            std::memset(columns, 0, static_cast<std::size_t>(count) * columnBytes);
        else
            packColumns<family>(strip + i, stride, rows, columns, count);
    }
}

}  // namespace

void AdjustDataOrder(int width, int rowsLeft, const unsigned char* strip, unsigned char* columns) {
    packStrip<Family::oki>(width, rowsLeft, strip, columns);
}

void AdjustDataOrder_OLI(int width, int rowsLeft, const unsigned char* strip, unsigned char* columns) {
    packStrip<Family::oli>(width, rowsLeft, strip, columns);
}

}  // namespace passbook
