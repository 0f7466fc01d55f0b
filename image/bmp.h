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
#include "image/handles.h"

namespace passbook {

class OutputFile;

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

/// Bytes of all rows of a picture, or -1 when they are beyond what 31 bits hold.
[[nodiscard]] std::int64_t bmpImageBytes(std::int64_t width, std::int64_t rows, std::int64_t bitsPerPixel);

/// What a BMP file's header says of its picture.
struct BmpGeometry {
    int width = 0;         // pixels
    int storedHeight = 0;  // rows; negative when the file holds them from the top
    int dataOffset = 0;
    int bitsPerPixel = 0;

    /// Rows; of any height that is not the least int, to which there is no positive.
    [[nodiscard]] int rows() const { return storedHeight < 0 ? -storedHeight : storedHeight; }
    /// Where the file's n-th row stands in the picture, from the top.
    [[nodiscard]] int fromTop(int stored) const { return storedHeight < 0 ? stored : storedHeight - 1 - stored; }
};

/// Creates a BMP file up to its rows, which the caller writes behind: as saveImageASBMP does, with its results. Whether all
/// could be written, OutputFile tells in the end.
[[nodiscard]] int createBmp(OutputFile& file, int width, int height, int bitsPerPixel, int bottomUp, char colorMode,
                            const char* path);

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

/// A temporary file (see createTempFile) that begins as setBMPHeader's do, for the rows to be written behind. A disk that
/// is full is found by whoever reads the file and misses its rows.
class TempBmp {
 public:
    TempBmp() = default;
    TempBmp(const TempBmp&) = delete;
    TempBmp& operator=(const TempBmp&) = delete;
    ~TempBmp() { close(); }

    /// False, and no file left, when it cannot be created or its size does not fit the format. `path` must outlive this
    /// object.
    [[nodiscard]] bool create(const char* path, int width, int height, int bitsPerPixel);
    [[nodiscard]] std::FILE* get() const { return file_.get(); }
    /// Writes what is left. A file that has no room for its headers even is removed: it would pass for one that is short.
    void close();

 private:
    FileHandle file_;
    const char* path_ = nullptr;
};

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

/// Releases what getBitmapData handed out. Null is ignored.
void freeBitmapData(unsigned char* buffer);

struct FreeBitmapData {
    void operator()(unsigned char* data) const { freeBitmapData(data); }
};

/// A BMP file's whole picture in memory, of 8, 16, 24 or 32 bits a pixel. BmpReader is for whoever can do without.
class Bitmap : public BmpGeometry {
 public:
    std::unique_ptr<unsigned char, FreeBitmapData> data;  // rows of bmpStrideBytes(width, bitsPerPixel), top row first

    /// 0, or a code of BmpReader.
    [[nodiscard]] int load(const char* path);
};

/// Fills a grey colour table: the first two entries are cleared whole, then entry i gets i x (255 / (count -
/// 1)).
void FormatColorPalette(tagRGBQUAD* table, int count, char unused);

/// Bytes of the headers and the colour table of a BMP: 54 + 4 x 2^bitsPerPixel up to 23 bits, 54 + 4 x 256
/// above.
[[nodiscard]] int GetBMPheaderSize(int bitsPerPixel);

}  // namespace passbook
