// Recognising image files, and turning them into BMP files for the print engine and out of them for the host.
//
// Widths and heights above 32767, and pictures whose BMP would be beyond 2^31 - 1 bytes, are refused before
// memory is taken for them. BMP files are made as temporary files (see createTempFile).
#pragma once

#include <cstdio>

namespace passbook {

enum IMAGE_FORMAT : int {
    notRecognised = -1,
    formatBmp = 0,
    formatJpeg = 1,
    formatPng = 2,
};

/// Decides by an image's first 8 bytes, zero-filled behind a shorter one's end.
[[nodiscard]] IMAGE_FORMAT identifyHeaderFormat(const unsigned char* header);

/// Decides by a file's first 8 bytes. 0, also for a format that is not recognised; -2 the file cannot be
/// opened, and
/// `*format` is as it was.
[[nodiscard]] int identifyFileFormat(const char* path, IMAGE_FORMAT* format);

/// Converts a JPEG to a top-down BMP: colour to 24 bits, grey to 8 bits. 0; -2 a file cannot be opened, or
/// the JPEG is damaged (codes that mean nothing, markers out of place), ends early, or is neither grey nor of three
/// components. A BMP that was begun stays
/// behind, without its last row at least, so that nobody takes it for the picture.
[[nodiscard]] int convertJPGtoBMP(const char* source, const char* destination);

/// Converts a PNG of any kind to a top-down BMP of 24 bits; transparency is dropped. Always 0: a PNG that
/// cannot be read shows in a BMP that is missing or short.
int convertPNGtoBMP(const char* source, const char* destination);

/// Appends a decoded row to an open BMP of 24 bits, blue first, filled up with zeros to a multiple of 4
/// bytes. `row`: `width` pixels of `pixelBytes` bytes each (3, or 4 with transparency), in a buffer of 4 x
/// width bytes, which is rewritten. Always 0.
int writePNGrow(std::FILE* file, unsigned char* row, int width, int pixelBytes);

/// Converts a BMP of 1, 4, 8 (grey), 24 or 32 bits (colour) to a baseline JPEG of `quality` 1 to 100, the
/// rows in the order in which the BMP stores them. 0; -2 a file cannot be opened (told on standard error),
/// the BMP is short, or its depth is another one, and then nothing is created. A JPEG that cannot be finished is
/// removed (see OutputFile); without a source to open an empty one stays behind.
[[nodiscard]] int convertBMPtoJPG(const char* source, const char* destination, int quality);

/// The same, but without a source to open nothing stays behind either.
[[nodiscard]] int saveAsJPG(const char* bmp, const char* destination, int quality);

/// Puts a finished BMP under its final name: as a JPEG of quality 20 when that name contains ".jpg", and the
/// BMP is deleted; else by renaming it. Without a BMP nothing is made, and what stood under the final name
/// stays. A JPEG that cannot be finished is removed. Always 0: the host sees by the file whether there is one.
int saveBitmapData(const char* bmp, const char* destination);

/// The same, and tells: true when the document stands under its final name.
[[nodiscard]] bool putUnderName(const char* bmp, const char* destination);

/// Turns a BMP clockwise by 90, 180 or 270 degrees into a top-down one of the same depth, 1 and 4 bits
/// becoming 8. 0; -1 another angle; -12 depths other than 1, 4, 8, 24, 32; -3 the destination cannot be
/// created; or a code of Bitmap::load. Nothing is written after a failure.
[[nodiscard]] int rorateImage(const char* source, const char* destination, int angle);

/// Where a turn takes the pixel at (x, y) of a picture of `width` x `height`: to column m0 x + m2 y +
/// *xOffset, row m1 x + m3 y + *yOffset of one of *newWidth x *newHeight. For other angles than 90, 180, 270
/// nothing is written.
void calcRorateRange(int width, int height, int angle, int matrix[4], int* newWidth, int* newHeight, int* xOffset,
                     int* yOffset);

}  // namespace passbook
