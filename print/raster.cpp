#include "print/raster.h"

#include <cstring>
#include <new>

#include "base/results.h"
#include "image/bmp.h"
#include "image/bmp_reader.h"
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
    BmpReader reader;
    if (const int result = reader.openExpanded(path); result != 0)
        return result;
    width = reader.geometry.width;
    height = reader.geometry.rows();
    const std::size_t stride = oneBitStrideBytes(width);
    data.reset(new (std::nothrow) unsigned char[stride * static_cast<std::size_t>(height)]);
    if (data == nullptr)
        return noMemory;
    for (int stored = 0; stored < height; ++stored) {
        const unsigned char* const row = reader.next();
        if (row == nullptr)
            return shortFile;
        thresholdRow(row, reader.geometry.bitsPerPixel,
                     data.get() + static_cast<std::size_t>(reader.geometry.fromTop(stored)) * stride, width,
                     inkThreshold);
    }
    return success;
}

int isBlankRow(int width, const unsigned char* row) {
    const std::size_t whole = static_cast<std::size_t>(width) / 8;
    // Comparing the row with itself, one byte on, asks whether all bytes equal the first.
    return whole == 0 || (row[0] == 0 && std::memcmp(row, row + 1, whole - 1) == 0) ? 1 : 0;
}

}  // namespace passbook
