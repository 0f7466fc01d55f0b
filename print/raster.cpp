#include "print/raster.h"

#include <cstring>
#include <utility>

#include "image/bmp.h"
#include "print/threshold.h"

namespace passbook {

std::size_t oneBitStrideBytes(int width) {
    return static_cast<std::size_t>(bmpStrideBytes(width, 1));
}

void BinaryImage(int width, int height, int bitsPerPixel, unsigned char* data, int threshold) {
    const auto stride = static_cast<std::size_t>(bmpStrideBytes(width, bitsPerPixel));
    const std::size_t bitStride = oneBitStrideBytes(width);
    for (std::size_t y = 0; y < static_cast<std::size_t>(height); ++y)
        thresholdRow(data + y * stride, bitsPerPixel, data + y * bitStride, width, threshold);
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

}  // namespace passbook
