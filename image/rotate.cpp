#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "image/bmp.h"
#include "image/convert.h"
#include "image/file.h"

namespace passbook {

namespace {

/// Where pixels go in the destination: the place of the first, and the steps to the place of the next one to
/// the right and the next one below, in bytes.
struct Path {
    std::ptrdiff_t start, perColumn, perRow;
};

/// Copies in tiles: a quarter turn writes down the columns, and a column of the whole picture does not stay
/// in the cache until its neighbour is written.
template <int PixelBytes>
void turn(const unsigned char* source, std::size_t sourceStride, unsigned char* destination, Path path, int width,
          int height) {
    constexpr int tile = 64;
    for (int top = 0; top < height; top += tile) {
        const int bottom = std::min(top + tile, height);
        for (int left = 0; left < width; left += tile) {
            const int right = std::min(left + tile, width);
            for (int y = top; y < bottom; ++y) {
                const unsigned char* from =
                    source + static_cast<std::size_t>(y) * sourceStride + static_cast<std::size_t>(left) * PixelBytes;
                unsigned char* to = destination + path.start + path.perRow * y + path.perColumn * left;
                for (int x = left; x < right; ++x, from += PixelBytes, to += path.perColumn)
                    std::memcpy(to, from, PixelBytes);
            }
        }
    }
}

}  // namespace

void calcRorateRange(int width, int height, int angle, int matrix[4], int* newWidth, int* newHeight, int* xOffset,
                     int* yOffset) {
    const auto set = [&](int m0, int m1, int m2, int m3, int x, int y) {
        const int values[] = {m0, m1, m2, m3};
        std::copy(std::begin(values), std::end(values), matrix);
        *newWidth = angle == 180 ? width : height;
        *newHeight = angle == 180 ? height : width;
        *xOffset = x;
        *yOffset = y;
    };
    if (angle == 90)
        set(0, 1, -1, 0, height - 1, 0);
    else if (angle == 180)
        set(-1, 0, 0, -1, width - 1, height - 1);
    else if (angle == 270)
        set(0, -1, 1, 0, 0, width - 1);
}

int rorateImage(const char* source, const char* destination, int angle) {
    if (angle != 90 && angle != 180 && angle != 270)
        return badArgument;
    Bitmap bitmap;
    if (const int result = bitmap.load(source); result != 0)
        return result;
    if (bitmap.bitsPerPixel > 8 && bitmap.bitsPerPixel != 24 && bitmap.bitsPerPixel != 32)
        return shortFile;

    int matrix[4] = {};
    int newWidth = 0;
    int newHeight = 0;
    int xOffset = 0;
    int yOffset = 0;
    calcRorateRange(bitmap.width, bitmap.rows(), angle, matrix, &newWidth, &newHeight, &xOffset, &yOffset);
    const int pixelBytes = bitmap.bitsPerPixel / 8;
    const auto sourceStride = static_cast<std::size_t>(bmpStrideBytes(bitmap.width, bitmap.bitsPerPixel));
    const auto stride = static_cast<std::ptrdiff_t>(bmpStrideBytes(newWidth, bitmap.bitsPerPixel));
    // A tall, narrow picture grows by its fill bytes when it is turned, at most fourfold: no overflow in 64 bits, but
    // maybe more than a file can say.
    const auto size = static_cast<std::size_t>(stride) * static_cast<std::size_t>(newHeight);
    if (size > static_cast<std::size_t>(INT32_MAX) - bmpHeaderBytes)
        return -3;
    const std::unique_ptr<unsigned char[]> turned(new (std::nothrow) unsigned char[size]);
    if (turned == nullptr)
        return noMemory;
    std::memset(turned.get(), 0xFF, size);  // white, also between the rows
    const Path path{xOffset * pixelBytes + yOffset * stride, matrix[0] * pixelBytes + matrix[1] * stride,
                    matrix[2] * pixelBytes + matrix[3] * stride};
    const auto copy = pixelBytes == 1 ? turn<1> : pixelBytes == 3 ? turn<3> : turn<4>;
    copy(bitmap.data.get(), sourceStride, turned.get(), path, bitmap.width, bitmap.rows());

    if (makeTempFile(destination) != 0)
        return -3;
    return saveImageASBMP(newWidth, newHeight, bitmap.bitsPerPixel, 0, 0, turned.get(), destination);
}

}  // namespace passbook
