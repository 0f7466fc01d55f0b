#include "image/bmp.h"

#include <sys/stat.h>

#include <limits>
#include <memory>
#include <new>

#include "image/bmp_header.h"
#include "image/bmp_reader.h"
#include "image/file.h"

namespace passbook {

namespace {

constexpr std::int64_t maxBytes = std::numeric_limits<std::int32_t>::max();

/// Bytes of the rows of a file that is to be written, or -1 when the format's fields cannot tell them.
std::int64_t writableBytes(int width, int height, int bitsPerPixel) {
    if (width < 0 || height < 0 || bitsPerPixel < 0)
        return -1;
    const std::int64_t size = bmpImageBytes(width, height, bitsPerPixel);
    return size <= maxBytes - bmpHeaderBytes ? size : -1;
}

/// Reads all rows into a new buffer, null after a failure.
int readAll(BmpReader& reader, unsigned char** buffer) {
    const BmpGeometry& picture = reader.geometry;
    const std::int64_t size = bmpImageBytes(picture.width, picture.rows(), picture.bitsPerPixel);
    std::unique_ptr<unsigned char[]> rows(new (std::nothrow) unsigned char[static_cast<std::size_t>(size)]);
    if (rows == nullptr)
        return noMemory;
    if (!reader.readAll(rows.get()))
        return shortFile;
    *buffer = rows.release();
    return success;
}

}  // namespace

std::int64_t bmpImageBytes(std::int64_t width, std::int64_t rows, std::int64_t bitsPerPixel) {
    const std::int64_t stride = bmpStrideBytes(width, bitsPerPixel);
    // Divided rather than multiplied, for the product of a hostile header's fields need not even fit 64 bits.
    if (stride > maxBytes || (rows > 0 && stride > maxBytes / rows))
        return -1;
    return stride * rows;
}

int createBmp(OutputFile& file, int width, int height, int bitsPerPixel, int bottomUp, char colorMode,
              const char* path) {
    if (path == nullptr)
        return -2;
    const std::int64_t size = writableBytes(width, height, bitsPerPixel);
    if (size < 0 || !file.create(path))
        return -3;
    file.bufferLargely();
    const int mode = static_cast<unsigned char>(colorMode) % 8;
    const int bitCount = mode >= 4 && mode <= 6 ? 24 : bitsPerPixel;
    BmpHeader(width, bottomUp != 0 ? height : -height, bitCount, static_cast<std::uint32_t>(size)).write(file.get());
    return success;
}

int saveImageASBMP(int width, int height, int bitsPerPixel, int bottomUp, char colorMode, const unsigned char* data,
                   const char* path) {
    OutputFile file;
    if (const int result = createBmp(file, width, height, bitsPerPixel, bottomUp, colorMode, path); result != 0)
        return result;
    const auto size = static_cast<std::size_t>(bmpImageBytes(width, height, bitsPerPixel));
    if (size > 0)
        (void)std::fwrite(data, 1, size, file.get());  // commit() tells
    return file.commit() ? 0 : -3;
}

int setBMPHeader(const char* path, int width, int height, int bitsPerPixel) {
    OutputFile file;
    if (const int result = createBmp(file, width, height, bitsPerPixel, 0, 0, path); result != 0)
        return result;
    return file.commit() ? 0 : -3;
}

bool TempBmp::create(const char* path, int width, int height, int bitsPerPixel) {
    const std::int64_t size = writableBytes(width, height, bitsPerPixel);
    if (size >= 0)
        file_ = createTempFile(path);
    if (file_ == nullptr)
        return false;
    path_ = path;
    bufferLargely(file_);
    // It goes out together with the first rows: the system keeps a file in larger pages when it is written in pieces
    // that begin and end on the borders of such pages.
    BmpHeader(width, -height, bitsPerPixel, static_cast<std::uint32_t>(size)).write(file_.get());
    return true;
}

void TempBmp::close() {
    if (file_ == nullptr)
        return;
    (void)std::fflush(file_.get());
    struct stat status {};
    if (fstat(fileno(file_.get()), &status) != 0 || status.st_size < bmpHeaderBytes)
        (void)std::remove(path_);
    file_.reset();
}

int getBitmapInfo(const char* path, int* width, int* height, int* dataOffset, int* bitsPerPixel) {
    BmpReader reader;
    int result = reader.open(path);
    if (result == 0)
        result = reader.readGeometry();
    if (result != 0)
        return result;
    *width = reader.geometry.width;
    *height = reader.geometry.storedHeight;
    *dataOffset = reader.geometry.dataOffset;
    *bitsPerPixel = reader.geometry.bitsPerPixel;
    return 0;
}

int getBitmapData(const char* path, unsigned char** buffer, int width, int height, int bitsPerPixel, int dataOffset) {
    *buffer = nullptr;
    BmpReader reader;
    reader.geometry = {width, height, dataOffset, bitsPerPixel};
    int result = reader.open(path);
    if (result == 0)
        result = reader.start(false);
    return result != 0 ? result : readAll(reader, buffer);
}

void freeBitmapData(unsigned char* buffer) {
    delete[] buffer;
}

int Bitmap::load(const char* path) {
    BmpReader reader;
    int result = reader.openExpanded(path);
    static_cast<BmpGeometry&>(*this) = reader.geometry;
    unsigned char* loaded = nullptr;
    if (result == 0)
        result = readAll(reader, &loaded);
    data.reset(loaded);
    return result;
}

void FormatColorPalette(tagRGBQUAD* table, int count, char /*unused*/) {
    for (int i = 0; i < 2 && i < count; ++i)
        table[i] = tagRGBQUAD{};
    for (int i = 0; i < count; ++i) {
        const int step = count > 1 ? 255 / (count - 1) : 0;
        const auto level = static_cast<unsigned char>(step * i);
        table[i].rgbBlue = level;
        table[i].rgbGreen = level;
        table[i].rgbRed = level;
    }
}

int GetBMPheaderSize(int bitsPerPixel) {
    const int colors = bitsPerPixel >= 0 && bitsPerPixel <= 23 ? 1 << bitsPerPixel : 256;
    return bmpHeaderBytes + 4 * colors;
}

}  // namespace passbook
