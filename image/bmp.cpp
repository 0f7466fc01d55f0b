#include "image/bmp.h"

#include <algorithm>
#include <array>
#include <limits>
#include <memory>
#include <new>

#include "image/file.h"
#include "image/handles.h"

namespace passbook {

namespace {

// Offsets of the header fields that are read or written.
enum : std::size_t {
    atType = 0,
    atFileSize = 2,
    atDataOffset = 10,
    atInfoSize = 14,
    atWidth = 18,
    atHeight = 22,
    atPlanes = 26,
    atBitCount = 28,
    atImageSize = 34,
    atColorsUsed = 46,
};

using Header = std::array<unsigned char, bmpHeaderBytes>;

constexpr std::int64_t maxBytes = std::numeric_limits<std::int32_t>::max();

void put16(Header& header, std::size_t at, std::uint32_t value) {
    header[at] = static_cast<unsigned char>(value);
    header[at + 1] = static_cast<unsigned char>(value >> 8);
}

void put32(Header& header, std::size_t at, std::uint32_t value) {
    put16(header, at, value);
    put16(header, at + 2, value >> 16);
}

std::uint32_t get16(const Header& header, std::size_t at) {
    return header[at] | static_cast<std::uint32_t>(header[at + 1]) << 8;
}

std::uint32_t get32(const Header& header, std::size_t at) {
    return get16(header, at) | get16(header, at + 2) << 16;
}

/// Bytes of the whole picture, or -1 when they are beyond what 31 bits hold. Divides rather than multiplies,
/// for the product of a hostile header's fields need not even fit 64 bits.
std::int64_t imageBytes(std::int64_t width, std::int64_t rows, std::int64_t bitsPerPixel) {
    const std::int64_t stride = bmpStrideBytes(width, bitsPerPixel);
    if (stride > maxBytes || (rows > 0 && stride > maxBytes / rows))
        return -1;
    return stride * rows;
}

Header makeHeader(int width, int storedHeight, int bitCount, std::uint32_t imageSize) {
    Header header{};
    put16(header, atType, 0x4D42);  // "BM"
    put32(header, atFileSize, bmpHeaderBytes + imageSize);
    put32(header, atDataOffset, bmpHeaderBytes);
    put32(header, atInfoSize, 40);
    put32(header, atWidth, static_cast<std::uint32_t>(width));
    put32(header, atHeight, static_cast<std::uint32_t>(storedHeight));
    put16(header, atPlanes, 1);
    put16(header, atBitCount, static_cast<std::uint32_t>(bitCount));
    put32(header, atImageSize, imageSize);
    return header;
}

/// Bytes of the rows of a file that is to be written, or -1 when the format's fields cannot tell them.
std::int64_t writableBytes(int width, int height, int bitsPerPixel) {
    if (width < 0 || height < 0 || bitsPerPixel < 0)
        return -1;
    const std::int64_t size = imageBytes(width, height, bitsPerPixel);
    return size <= maxBytes - bmpHeaderBytes ? size : -1;
}

/// Creates `path` with the header and `size` bytes of rows behind it. 0 or -3.
int writeFile(const char* path, const Header& header, const unsigned char* rows, std::size_t size) {
    OutputFile file;
    if (!file.create(path))
        return -3;
    (void)std::fwrite(header.data(), 1, header.size(), file.get());  // commit() tells
    if (size > 0)
        (void)std::fwrite(rows, 1, size, file.get());
    return file.commit() ? 0 : -3;
}

int readHeader(std::FILE* file, Header& header) {
    return std::fread(header.data(), 1, header.size(), file) == header.size() ? success : shortFile;
}

/// Spreads packed indices of `Bits` bits each.
template <int Bits>
void spread(const unsigned char* packed, unsigned char* grey, int width, const unsigned char* levels) {
    constexpr int perByte = 8 / Bits;
    constexpr unsigned mask = (1U << Bits) - 1;
    for (int x = 0; x < width; ++x) {
        const int shift = (perByte - 1 - x % perByte) * Bits;
        grey[x] = levels[(static_cast<unsigned>(packed[x / perByte]) >> shift) & mask];
    }
}

}  // namespace

int saveImageASBMP(int width, int height, int bitsPerPixel, int bottomUp, char colorMode, const unsigned char* data,
                   const char* path) {
    if (path == nullptr)
        return -2;
    const std::int64_t size = writableBytes(width, height, bitsPerPixel);
    if (size < 0)
        return -3;
    const int mode = static_cast<unsigned char>(colorMode) % 8;
    const int bitCount = mode >= 4 && mode <= 6 ? 24 : bitsPerPixel;
    return writeFile(path,
                     makeHeader(width, bottomUp != 0 ? height : -height, bitCount, static_cast<std::uint32_t>(size)),
                     data, static_cast<std::size_t>(size));
}

int setBMPHeader(const char* path, int width, int height, int bitsPerPixel) {
    if (path == nullptr)
        return -2;
    const std::int64_t size = writableBytes(width, height, bitsPerPixel);
    if (size < 0)
        return -3;
    return writeFile(path, makeHeader(width, -height, bitsPerPixel, static_cast<std::uint32_t>(size)), nullptr, 0);
}

std::FILE* createTempBmp(const char* path, int width, int height, int bitsPerPixel) {
    if (makeTempFile(path) != 0)
        return nullptr;
    std::FILE* file = setBMPHeader(path, width, height, bitsPerPixel) == 0 ? std::fopen(path, "ab") : nullptr;
    if (file == nullptr)
        (void)std::remove(path);  // a file without a header would pass for one that is short
    return file;
}

int getBitmapInfo(const char* path, int* width, int* height, int* dataOffset, int* bitsPerPixel) {
    const FileHandle file = openForReading(path);
    if (file == nullptr)
        return noFile;
    Header header;
    if (readHeader(file.get(), header) != 0)
        return shortFile;
    *width = static_cast<int>(get32(header, atWidth));
    *height = static_cast<int>(get32(header, atHeight));
    *dataOffset = static_cast<int>(get32(header, atDataOffset));
    *bitsPerPixel = static_cast<int>(get16(header, atBitCount));
    return 0;
}

int getBitmapData(const char* path, unsigned char** buffer, int width, int height, int bitsPerPixel, int dataOffset) {
    *buffer = nullptr;
    const FileHandle file = openForReading(path);
    if (file == nullptr)
        return noFile;
    if (width < 1 || height == std::numeric_limits<int>::min() || dataOffset < 0)
        return missingRows;
    // Also what keeps the loop below from running over billions of rows of no bytes.
    if (bitsPerPixel < 8 && bitsPerPixel != 1 && bitsPerPixel != 4)
        return shortFile;
    const int rows = height < 0 ? -height : height;
    const std::int64_t size = imageBytes(width, rows, bitsPerPixel);
    if (size < 0)
        return missingRows;
    if (std::fseek(file.get(), 0, SEEK_END) != 0)
        return missingRows;  // a pipe or a terminal: nothing that holds rows at an offset
    const long length = std::ftell(file.get());
    if (length < dataOffset || length - dataOffset < size)
        return missingRows;
    if (std::fseek(file.get(), dataOffset, SEEK_SET) != 0)
        return missingRows;

    std::unique_ptr<unsigned char[]> data(new (std::nothrow) unsigned char[static_cast<std::size_t>(size)]);
    if (data == nullptr)
        return noMemory;
    const auto stride = static_cast<std::size_t>(bmpStrideBytes(width, bitsPerPixel));
    for (int row = 0; row < rows; ++row) {
        const int target = height < 0 ? row : rows - 1 - row;
        if (std::fread(data.get() + static_cast<std::size_t>(target) * stride, 1, stride, file.get()) != stride)
            return shortFile;
    }
    *buffer = data.release();
    return 0;
}

void freeBitmapData(unsigned char* buffer) {
    delete[] buffer;
}

int GreyLevels::load(const char* path, int dataOffset, int bitsPerPixel) {
    if (bitsPerPixel != 1 && bitsPerPixel != 4)
        return shortFile;
    bits_ = bitsPerPixel;
    std::array<tagRGBQUAD, 16> table{};
    const int indices = 1 << bits_;

    const FileHandle file = openForReading(path);
    if (file == nullptr)
        return noFile;
    Header header;
    if (readHeader(file.get(), header) != 0)
        return shortFile;
    // The table lies between the information header, however long its version is, and the rows.
    const std::int64_t tableOffset = std::int64_t{14} + get32(header, atInfoSize);
    std::int64_t entries = get32(header, atColorsUsed) != 0 ? get32(header, atColorsUsed) : indices;
    entries = std::min(entries, std::max<std::int64_t>(0, (dataOffset - tableOffset) / 4));
    entries = std::min<std::int64_t>(entries, indices);
    if (entries == 0) {
        FormatColorPalette(table.data(), indices, 0);
    } else {
        const auto count = static_cast<std::size_t>(entries);
        if (std::fseek(file.get(), static_cast<long>(tableOffset), SEEK_SET) != 0 ||
            std::fread(table.data(), sizeof(tagRGBQUAD), count, file.get()) != count)
            return shortFile;
    }
    std::transform(table.begin(), table.end(), levels_, [](const tagRGBQUAD& entry) {
        return static_cast<unsigned char>((entry.rgbBlue + entry.rgbGreen + entry.rgbRed) / 3);
    });
    return 0;
}

void GreyLevels::expandRow(const unsigned char* packed, unsigned char* grey, int width) const {
    if (bits_ == 1)
        spread<1>(packed, grey, width, levels_);
    else
        spread<4>(packed, grey, width, levels_);
}

int expandToGrey(const char* path, unsigned char** buffer, int width, int rows, int* bitsPerPixel, int dataOffset) {
    if (*bitsPerPixel >= 8)
        return 0;
    GreyLevels levels;
    if (const int result = levels.load(path, dataOffset, *bitsPerPixel); result != 0)
        return result;

    const std::int64_t size = imageBytes(width, rows, 8);
    if (size < 0)
        return missingRows;
    std::unique_ptr<unsigned char[]> grey(new (std::nothrow) unsigned char[static_cast<std::size_t>(size)]());
    if (grey == nullptr)
        return noMemory;
    const auto packedStride = static_cast<std::size_t>(bmpStrideBytes(width, *bitsPerPixel));
    const auto greyStride = static_cast<std::size_t>(bmpStrideBytes(width, 8));
    for (std::size_t row = 0; row < static_cast<std::size_t>(rows); ++row)
        levels.expandRow(*buffer + row * packedStride, grey.get() + row * greyStride, width);

    freeBitmapData(*buffer);
    *buffer = grey.release();
    *bitsPerPixel = 8;
    return 0;
}

int Bitmap::load(const char* path) {
    const int result = readInfo(path);
    return result != 0 ? result : readRows(path);
}

int Bitmap::readInfo(const char* path) {
    return getBitmapInfo(path, &width, &storedHeight, &dataOffset, &bitsPerPixel);
}

int Bitmap::readRows(const char* path) {
    unsigned char* loaded = nullptr;
    int result = getBitmapData(path, &loaded, width, storedHeight, bitsPerPixel, dataOffset);
    if (result == 0)
        result = expandToGrey(path, &loaded, width, rows(), &bitsPerPixel, dataOffset);
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
