#include "print/raster.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <utility>

namespace passbook {

namespace {

/// Thresholds one row of pixels `Step` bytes apart, of which the first `Samples` count. Every byte is written
/// behind the last one read for it, so input and output may be the same buffer.
template <int Step, int Samples>
void thresholdRow(const unsigned char* pixels, unsigned char* bits, int width, int limit) {
    const auto ink = [&](const unsigned char* pixel) -> unsigned {
        int sum = 0;
        for (int i = 0; i < Samples; ++i)
            sum += pixel[i];
        return sum < limit ? 1U : 0U;
    };
    for (; width >= 8; width -= 8, ++bits) {
        unsigned byte = 0;
        for (int i = 0; i < 8; ++i, pixels += Step)
            byte = byte << 1 | ink(pixels);
        *bits = static_cast<unsigned char>(byte);
    }
    if (width > 0) {
        unsigned byte = 0;
        for (int i = 0; i < width; ++i, pixels += Step)
            byte |= ink(pixels) << (7 - i);
        *bits = static_cast<unsigned char>(byte);
    }
}

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

std::size_t oneBitStrideBytes(int width) {
    return static_cast<std::size_t>(bmpStrideBytes(width, 1));
}

void BinaryImage(int width, int height, int bitsPerPixel, unsigned char* data, int threshold) {
    const auto stride = static_cast<std::size_t>(bmpStrideBytes(width, bitsPerPixel));
    const std::size_t bitStride = oneBitStrideBytes(width);
    // A truncated mean is below the threshold exactly when the sum is below three times the threshold; the
    // sum needs no division. Grey is 0 to 255, so clamping keeps a wild threshold's meaning.
    const int limit = std::clamp(threshold, 0, 256);
    const auto row = bitsPerPixel == 24   ? thresholdRow<3, 3>
                     : bitsPerPixel == 32 ? thresholdRow<4, 3>
                                          : thresholdRow<1, 1>;
    const int rowLimit = bitsPerPixel == 24 || bitsPerPixel == 32 ? 3 * limit : limit;
    for (std::size_t y = 0; y < static_cast<std::size_t>(height); ++y)
        row(data + y * stride, data + y * bitStride, width, rowLimit);
}

int OneBitPicture::load(const char* path) {
    Bitmap bitmap;
    if (const int result = bitmap.load(path); result != 0)
        return result;
    width = bitmap.width;
    height = bitmap.rows();
    data = std::move(bitmap.data);
    BinaryImage(width, height, bitmap.bitsPerPixel, data.get(), inkThreshold);
    return 0;
}

int isBlankRow(int width, const unsigned char* row) {
    const std::size_t whole = static_cast<std::size_t>(width) / 8;
    // Comparing the row with itself, one byte on, asks whether all bytes equal the first.
    return whole == 0 || (row[0] == 0 && std::memcmp(row, row + 1, whole - 1) == 0) ? 1 : 0;
}

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
