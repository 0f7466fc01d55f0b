// From a picture's pixels to what a 24-pin head prints: one bit a pixel, strips of 24 rows, 3 bytes a column.
//
// Positions and sizes are dots of 1/180 inch, and a pixel is a dot.
#pragma once

#include <cstddef>
#include <memory>
namespace passbook {

/// Rows of a strip: the pins of the print head.
inline constexpr int stripRows = 24;
/// Bytes of a packed column, one for each eight pins.
inline constexpr int columnBytes = 3;
/// Grey values below it are ink.
inline constexpr int inkThreshold = 200;

/// Bytes of a row of the one-bit image.
[[nodiscard]] std::size_t oneBitStrideBytes(int width);

/// Reduces a picture to one bit a pixel, in place: 1 is ink, the leftmost pixel is the highest bit, rows of
/// oneBitStrideBytes(width) bytes stand from the buffer's start, top row first as in the input.
/// `data`: rows as getBitmapData delivers them. `bitsPerPixel` 24 and 32 compare the mean of blue, green and
/// red with the threshold; every other depth compares the byte at the pixel's index, so it must be at
/// least 8. Bits and bytes of a row behind its last pixel are undefined.
void BinaryImage(int width, int height, int bitsPerPixel, unsigned char* data, int threshold);

/// A BMP file's picture, ready for the walk: thresholded row by row as it is read, so that no more of it is ever held.
struct OneBitPicture {
    int width = 0;
    int height = 0;                         // rows, whatever their order in the file
    std::unique_ptr<unsigned char[]> data;  // rows of oneBitStrideBytes(width) bytes, top row first

    /// 0, or a code of BmpReader.
    [[nodiscard]] int load(const char* path);
};

/// 1 when the first width / 8 whole bytes of a one-bit row hold no ink, else 0. The pixels of a last, partial
/// byte are not looked at: ink that stands only there does not make a strip.
[[nodiscard]] int isBlankRow(int width, const unsigned char* row);

/// Packs a strip for the OKI family: the upper row of each eight in the highest bit.
/// `rowsLeft`: rows of the picture from the strip's first one to the bottom; what lies below is blank.
/// `strip`: the strip's first row in the one-bit image. `columns`: 3 x width bytes, all of which are written.
void AdjustDataOrder(int width, int rowsLeft, const unsigned char* strip, unsigned char* columns);

/// Packs a strip for the OLI family: the upper row of each eight in the lowest bit. That family ends a run of
/// data with an escape sequence, so a byte 0x1B in the data would end it early: it becomes 0x1A, which costs
/// the dot of the group's upper row.
void AdjustDataOrder_OLI(int width, int rowsLeft, const unsigned char* strip, unsigned char* columns);

}  // namespace passbook
