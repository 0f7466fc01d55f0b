// BMP files: the one form in which a picture reaches the print engine and leaves the scanner.
//
// The layout is that of the BMP format's BITMAPFILEHEADER (14 bytes) and BITMAPINFOHEADER (40 bytes), all
// fields little-endian. Files are written uncompressed, without a colour table, so that the rows begin at
// byte 54. Files of others are read from wherever their header says that the rows begin.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>

#include "base/results.h"

namespace passbook {

/// Bytes from the start of a BMP file to the end of its information header.
inline constexpr int bmpHeaderBytes = 54;

/// A colour-table entry, as it stands in the file.
struct tagRGBQUAD {
    unsigned char rgbBlue;
    unsigned char rgbGreen;
    unsigned char rgbRed;
    unsigned char rgbReserved;
};

/// Bytes of one row in a BMP: the pixels' bits, brought up to whole bytes and then to a multiple of 4.
[[nodiscard]] constexpr std::int64_t bmpStrideBytes(std::int64_t width, std::int64_t bitsPerPixel) {
    return ((width * bitsPerPixel + 7) / 8 + 3) / 4 * 4;
}

/// Writes a whole BMP file.
/// `height` is a positive row count; `bottomUp` not 0 announces rows from the bottom upward (a positive
/// height in the file), 0 from the top downward (a negative one). `colorMode` 4, 5 or 6 (modulo 8) writes a
/// bit count of 24 into the header, whatever `bitsPerPixel` is; all sizes stay those of `bitsPerPixel`.
/// `data` holds stride x height bytes in the order in which they are to stand in the file. 0; -2 `path` is
/// null; -3 the file cannot be created, or not be written whole (it is then removed), or its size does not fit
/// the format's 32 bits.
[[nodiscard]] int saveImageASBMP(int width, int height, int bitsPerPixel, int bottomUp, char colorMode,
                                 const unsigned char* data, const char* path);

/// Writes a file with nothing but the headers of a top-down BMP, for a converter to append the rows to.
/// Results as saveImageASBMP.
[[nodiscard]] int setBMPHeader(const char* path, int width, int height, int bitsPerPixel);

/// Makes a temporary file (see makeTempFile) that begins as setBMPHeader's do, and opens it for appending the rows.
/// Null, and no file left, when it cannot be created or its size does not fit the format.
[[nodiscard]] std::FILE* createTempBmp(const char* path, int width, int height, int bitsPerPixel);

/// Reads a BMP file's geometry, without judging it. `height` keeps its sign: negative is top-down.
/// 0; -11 the file cannot be opened; -12 it is shorter than its headers.
[[nodiscard]] int getBitmapInfo(const char* path, int* width, int* height, int* dataOffset, int* bitsPerPixel);

/// Reads the rows into a new buffer of stride x |height| bytes, top row first whatever the file's order;
/// release it with freeBitmapData. The geometry is what getBitmapInfo returned. 0; -11 the file cannot be
/// opened; -12 a row cannot be read whole, or the depth is none that a BMP has (0, 2, 3, 5 to 7); -13 the
/// file holds fewer rows than it promises, or its geometry cannot be held at all (a width below 1, sizes
/// beyond 31 bits, rows that begin behind the end); -31 no memory. `*buffer` is null after every failure.
[[nodiscard]] int getBitmapData(const char* path, unsigned char** buffer, int width, int height, int bitsPerPixel,
                                int dataOffset);

/// Releases what getBitmapData or expandToGrey handed out. Null is ignored.
void freeBitmapData(unsigned char* buffer);

struct FreeBitmapData {
    void operator()(unsigned char* data) const { freeBitmapData(data); }
};

/// The grey levels that the pixels of a BMP of 1 or 4 bits stand for: the mean of blue, green and red in the
/// file's colour table or, without one, the even ramp from 0 to 255. Indices behind a short table's end are
/// black.
class GreyLevels {
 public:
    /// Reads them. 0; -11 the file cannot be opened; -12 its table is short, or the depth is another one.
    [[nodiscard]] int load(const char* path, int dataOffset, int bitsPerPixel);

    /// Spreads a row of packed indices, the leftmost pixel in the highest bits, into `width` bytes of grey.
    void expandRow(const unsigned char* packed, unsigned char* grey, int width) const;

 private:
    unsigned char levels_[16] = {};
    int bits_ = 1;
};

/// Turns a loaded picture of 1 or 4 bits per pixel into 8-bit grey (see GreyLevels); `*buffer` is then a new
/// one and
/// `*bitsPerPixel` 8. Pictures of 8 and more bits are left alone.
/// 0; -11, -12 the file's colour table cannot be read; -12 a depth that no BMP has (0, 2, 3, 5 to 7); -13 the
/// grey picture would be beyond 31 bits; -31 no memory. After a failure `*buffer` is as it was, and still the
/// caller's.
[[nodiscard]] int expandToGrey(const char* path, unsigned char** buffer, int width, int rows, int* bitsPerPixel,
                               int dataOffset);

/// A BMP file's picture in memory, of 8, 16, 24 or 32 bits a pixel.
class Bitmap {
 public:
    int width = 0;         // pixels
    int storedHeight = 0;  // rows; negative when the file holds them from the top
    int dataOffset = 0;
    int bitsPerPixel = 0;
    std::unique_ptr<unsigned char, FreeBitmapData> data;  // rows of bmpStrideBytes(width, bitsPerPixel), top row first

    /// Both of the following.
    [[nodiscard]] int load(const char* path);
    /// The geometry as it stands in the file. 0, or a code of getBitmapInfo.
    [[nodiscard]] int readInfo(const char* path);
    /// The rows, those of 1 and 4 bits a pixel as 8-bit grey. 0, or a code of getBitmapData or expandToGrey.
    [[nodiscard]] int readRows(const char* path);

    /// Rows; of a height that readRows has accepted.
    [[nodiscard]] int rows() const { return storedHeight < 0 ? -storedHeight : storedHeight; }
};

/// Fills a grey colour table: the first two entries are cleared whole, then entry i gets i x (255 / (count -
/// 1)).
void FormatColorPalette(tagRGBQUAD* table, int count, char unused);

/// Bytes of the headers and the colour table of a BMP: 54 + 4 x 2^bitsPerPixel up to 23 bits, 54 + 4 x 256
/// above.
[[nodiscard]] int GetBMPheaderSize(int bitsPerPixel);

}  // namespace passbook
