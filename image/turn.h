// Turning pixels in memory.
#pragma once

#include <cstddef>

namespace passbook {

/// Pixels in memory, and where a turn takes them: the one at (x, y) to column m0 x + m2 y + xOffset, row m1 x + m3 y +
/// yOffset, as calcRorateRange tells.
struct Turn {
    static constexpr int bytesBehind = 1;  // the pixels, that are read as well

    const unsigned char* pixels = nullptr;  // rows of strideBytes, top row first
    std::ptrdiff_t strideBytes = 0;
    int pixelBytes = 0;  // 1, 3 or 4
    int newWidth = 0, newHeight = 0;
    int matrix[4] = {};
    int xOffset = 0, yOffset = 0;

    /// Writes `count` rows of the turned picture, from the `first` on, to rows of `rowBytes`. What is behind their last
    /// pixels stays as it is.
    void rows(int first, int count, unsigned char* out, std::size_t rowBytes) const;
};

}  // namespace passbook
