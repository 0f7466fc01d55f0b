#include <sys/mman.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <iterator>
#include <memory>
#include <new>

#include "base/results.h"
#include "image/bmp.h"
#include "image/bmp_reader.h"
#include "image/convert.h"
#include "image/turn.h"

namespace passbook {

namespace {

/// Memory for a whole picture. The system is asked to hand it out in pieces of megabytes: by 4 KB, that takes longer than
/// reading the picture. It is free to do as it likes.
class PictureMemory {
 public:
    explicit PictureMemory(std::size_t size) {
        std::size_t space = size + largePage;
        memory_.reset(new (std::nothrow) unsigned char[space]);
        void* start = memory_.get();
        if (start == nullptr)
            return;
        start_ = static_cast<unsigned char*>(std::align(largePage, size, start, space));
#ifdef MADV_HUGEPAGE
        (void)madvise(start_, size, MADV_HUGEPAGE);
#endif
    }
    [[nodiscard]] unsigned char* get() const {
        return start_;
    }

 private:
    static constexpr std::size_t largePage = std::size_t{2} * 1024 * 1024;

    std::unique_ptr<unsigned char[]> memory_;
    unsigned char* start_ = nullptr;  // null without memory
};

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
    BmpReader reader;
    if (const int result = reader.openExpanded(source); result != 0)
        return result;
    const BmpGeometry& picture = reader.geometry;
    const int bits = picture.bitsPerPixel;
    if (bits != 8 && bits != 24 && bits != 32)
        return shortFile;
    Turn turn;
    turn.strideBytes = static_cast<std::ptrdiff_t>(bmpStrideBytes(picture.width, bits));
    turn.pixelBytes = bits / 8;
    calcRorateRange(picture.width, picture.rows(), angle, turn.matrix, &turn.newWidth, &turn.newHeight, &turn.xOffset,
                    &turn.yOffset);
    // Beside the picture, only a band of the turned one is held.
    const int bandRows = std::min(64, turn.newHeight);
    const auto rowBytes = static_cast<std::size_t>(bmpStrideBytes(turn.newWidth, bits));
    const std::size_t bandBytes = rowBytes * static_cast<std::size_t>(bandRows);
    const PictureMemory pixels(static_cast<std::size_t>(turn.strideBytes * picture.rows() + Turn::bytesBehind));
    const std::unique_ptr<unsigned char[]> band(new (std::nothrow) unsigned char[bandBytes]);
    if (pixels.get() == nullptr || band == nullptr)
        return noMemory;
    if (!reader.readAll(pixels.get()))
        return shortFile;
    turn.pixels = pixels.get();
    std::memset(band.get(), 0xFF, bandBytes);  // white, also between the rows
    TempBmp turned;
    if (!turned.create(destination, turn.newWidth, turn.newHeight, bits))
        return -3;
    for (int first = 0; first < turn.newHeight; first += bandRows) {
        const int count = std::min(bandRows, turn.newHeight - first);
        turn.rows(first, count, band.get(), rowBytes);
        (void)std::fwrite(band.get(), rowBytes, static_cast<std::size_t>(count), turned.get());
    }
    return 0;
}

}  // namespace passbook
