#include "image/turn.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace passbook {

namespace {

/// Where the pixels of a run of the turned picture stand: the first one, and the steps to the one that comes to the right
/// of it and to the one that comes below it, in bytes.
struct Source {
    const unsigned char* first;
    std::ptrdiff_t toTheRight, below;
};

/// Copies `count` pixels that are `step` bytes apart to where they stand one behind the other.
template <int PixelBytes>
void copyPixels(const unsigned char* from, std::ptrdiff_t step, unsigned char* to, int count) {
    for (; count > 0; --count, from += step, to += PixelBytes)
        std::memcpy(to, from, PixelBytes);
}

/// Pixels of 3 bytes four at a time: they fill an 8-byte and a 4-byte word, lowest byte first. A byte behind each of them
/// is read, too.
template <>
void copyPixels<3>(const unsigned char* from, std::ptrdiff_t step, unsigned char* to, int count) {
    const auto load = [](const unsigned char* pixel) {
        std::uint32_t bytes = 0;
        std::memcpy(&bytes, pixel, sizeof bytes);
        return bytes & 0xFFFFFF;
    };
    constexpr bool lowestFirst = std::endian::native == std::endian::little;
    for (; lowestFirst && count >= 4; count -= 4, from += 4 * step, to += 12) {
        const std::uint64_t a = load(from), b = load(from + step), c = load(from + 2 * step);
        const auto end = static_cast<std::uint32_t>(c >> 16 | load(from + 3 * step) << 8);
        const std::uint64_t start = a | b << 24 | c << 48;
        std::memcpy(to, &start, sizeof start);
        std::memcpy(to + sizeof start, &end, sizeof end);
    }
    for (; count > 0; --count, from += step, to += 3)
        std::memcpy(to, from, 3);
}

/// The plain meaning is two loops over `count` rows of `width` pixels. They go in tiles, for a quarter turn reads down the
/// columns, and a column of the whole picture does not stay in the cache until its neighbour is read. What the next tile
/// reads is called for meanwhile: no processor guesses that.
template <int PixelBytes>
void copyTiles(const Source& source, int width, int count, unsigned char* out, std::size_t rowBytes) {
    constexpr int tile = 64, cacheLine = 64;
    const bool downColumns = std::abs(source.below) == PixelBytes;
    for (int top = 0; top < count; top += tile) {
        const int bottom = std::min(top + tile, count);
        const std::ptrdiff_t lowest = source.below * (source.below > 0 ? top : bottom - 1);
        for (int left = 0; left < width; left += tile) {
            for (int y = top; y < bottom; ++y) {
                const int next = left + tile + y - top;
                for (int ahead = 0; downColumns && next < width && ahead <= tile * PixelBytes; ahead += cacheLine)
                    __builtin_prefetch(source.first + source.toTheRight * next + lowest + ahead);
                copyPixels<PixelBytes>(
                    source.first + source.below * y + source.toTheRight * left, source.toTheRight,
                    out + static_cast<std::size_t>(y) * rowBytes + static_cast<std::size_t>(left) * PixelBytes,
                    std::min(tile, width - left));
            }
        }
    }
}

}  // namespace

void Turn::rows(int first, int count, unsigned char* out, std::size_t rowBytes) const {
    const auto bytesOf = [this](std::ptrdiff_t x, std::ptrdiff_t y) { return x * pixelBytes + y * strideBytes; };
    // The way back is the matrix with its sides exchanged, as of every turn.
    const int x = matrix[0] * -xOffset + matrix[1] * (first - yOffset);
    const int y = matrix[2] * -xOffset + matrix[3] * (first - yOffset);
    const Source source{pixels + bytesOf(x, y), bytesOf(matrix[0], matrix[2]), bytesOf(matrix[1], matrix[3])};
    const auto copy = pixelBytes == 1 ? copyTiles<1> : pixelBytes == 3 ? copyTiles<3> : copyTiles<4>;
    copy(source, newWidth, count, out, rowBytes);
}

}  // namespace passbook
