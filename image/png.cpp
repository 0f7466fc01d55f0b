// PNG to BMP through libpng.

#include <png.h>

#include <algorithm>
#include <bit>
#include <csetjmp>
#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "image/bmp.h"
#include "image/convert.h"
#include "image/file.h"
#include "image/handles.h"

namespace passbook {

namespace {

constexpr png_uint_32 maxSide = 32767;

/// All that a conversion holds. It lives outside of the function that libpng's errors jump back into, so that
/// whatever was acquired by then is released by its owner.
struct PngConversion {
    png_structp png = nullptr;
    png_infop info = nullptr;
    FileHandle source;
    TempBmp destination;
    std::unique_ptr<unsigned char[]> pixels;
    std::unique_ptr<png_bytep[]> rows;

    PngConversion() = default;
    PngConversion(const PngConversion&) = delete;
    PngConversion& operator=(const PngConversion&) = delete;
    ~PngConversion() { png_destroy_read_struct(&png, &info, nullptr); }

    void run(const char* destinationPath);
    void askForColour();
    void copyRows(png_uint_32 width, png_uint_32 height, int pixelBytes, int passes);
};

/// Has every kind of PNG delivered as red, green, blue and maybe transparency, a byte each.
void PngConversion::askForColour() {
    const int colorType = png_get_color_type(png, info);
    const int bitDepth = png_get_bit_depth(png, info);
    if (colorType == PNG_COLOR_TYPE_PALETTE)
        png_set_palette_to_rgb(png);
    if (colorType == PNG_COLOR_TYPE_GRAY && bitDepth < 8)
        png_set_expand_gray_1_2_4_to_8(png);
    if (bitDepth == 16)
        png_set_strip_16(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS) != 0)
        png_set_tRNS_to_alpha(png);
    if (colorType == PNG_COLOR_TYPE_GRAY || colorType == PNG_COLOR_TYPE_GRAY_ALPHA)
        png_set_gray_to_rgb(png);
}

/// One row at a time, but an interlaced picture is complete only when its last pass is.
void PngConversion::copyRows(png_uint_32 width, png_uint_32 height, int pixelBytes, int passes) {
    // A byte of the file stands for 1032 bytes at most, eight pixels each. With fewer bytes than that the picture is not
    // whole, and memory for it is not taken.
    constexpr long long mostPixelsPerByte = 8 * 1032;
    if (passes > 1 && static_cast<long long>(width) * height > mostPixelsPerByte * sizeOf(source))
        return;
    const std::size_t rowBytes = std::size_t{width} * 4;
    const std::size_t held = passes > 1 ? height : 1;
    pixels.reset(new (std::nothrow) unsigned char[rowBytes * held]);
    if (pixels == nullptr)
        return;
    if (passes > 1) {
        rows.reset(new (std::nothrow) png_bytep[height]);
        if (rows == nullptr)
            return;
        for (std::size_t y = 0; y < height; ++y)
            rows[y] = pixels.get() + y * rowBytes;
        png_read_image(png, rows.get());
    }
    for (png_uint_32 y = 0; y < height; ++y) {
        unsigned char* row = pixels.get() + (passes > 1 ? y * rowBytes : 0);
        if (passes == 1)
            png_read_row(png, row, nullptr);
        (void)writePNGrow(destination.get(), row, static_cast<int>(width), pixelBytes);
    }
}

void PngConversion::run(const char* destinationPath) {
    // Nothing with a destructor may live in this function or below it: an error jumps over it.
    if (setjmp(png_jmpbuf(png)) != 0)
        return;
    png_set_user_limits(png, maxSide, maxSide);
    png_init_io(png, source.get());
    png_read_info(png, info);
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    askForColour();
    const int passes = png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const int pixelBytes = png_get_channels(png, info);
    if (!destination.create(destinationPath, static_cast<int>(width), static_cast<int>(height), 24))
        return;
    copyRows(width, height, pixelBytes, passes);
    destination.close();
    png_read_end(png, nullptr);
}

}  // namespace

int convertPNGtoBMP(const char* source, const char* destination) {
    PngConversion conversion;
    conversion.png = png_create_read_struct("1.6.36", nullptr, nullptr, nullptr);
    if (conversion.png == nullptr)
        return 0;
    conversion.info = png_create_info_struct(conversion.png);
    conversion.source = openForReading(source);
    if (conversion.info == nullptr || conversion.source == nullptr)
        return 0;
    bufferLargely(conversion.source);
    conversion.run(destination);
    return 0;
}

int writePNGrow(std::FILE* file, unsigned char* row, int width, int pixelBytes) {
    const unsigned char* from = row;
    unsigned char* to = row;
    int x = 0;
    // Two pixels at a time, lowest byte first: green stays, red and blue change places. Two bytes more are read, but not
    // written: the processor would have to wait for them in order to read them again.
    constexpr bool lowestFirst = std::endian::native == std::endian::little;
    constexpr std::uint64_t reds = 0xFF00'00FF, greens = reds << 8, blues = reds << 16;
    for (; lowestFirst && pixelBytes == 3 && x + 2 < width; x += 2, from += 6, to += 6) {
        std::uint64_t bytes = 0;
        std::memcpy(&bytes, from, sizeof bytes);
        bytes = (bytes & reds) << 16 | (bytes & greens) | (bytes & blues) >> 16;
        std::memcpy(to, &bytes, 6);
    }
    for (; x < width; ++x, from += pixelBytes, to += 3) {
        const unsigned char red = from[0];
        to[1] = from[1];
        const unsigned char blue = from[2];
        to[0] = blue;
        to[2] = red;
    }
    const auto stride = static_cast<std::size_t>(bmpStrideBytes(width, 24));
    std::fill(to, row + stride, static_cast<unsigned char>(0));
    (void)std::fwrite(row, 1, stride, file);  // see TempBmp
    return 0;
}

}  // namespace passbook
