// The OKI family's print jobs from image files and from images in memory, of any format and turned if asked for.
//
// What is no BMP, or is to be turned, goes through temporary files (see TMP_PATH), which are gone when the job returns.
#pragma once

namespace passbook {

/// Where the picture goes, in dots of 1/180 inch (see PrintBmp_OKI), and how it is turned before.
struct ImagePlace {
    int xDots = 0, yDots = 0;
    int turns = 0;  // clockwise quarter turns, 0 to 3
};

/// Prints an image file. 0; -6 it cannot be opened or is no BMP, JPEG or PNG; or a code of PrintBmp_OKI: a conversion
/// or a turn that fails shows as a BMP that is missing or short.
[[nodiscard]] int printImageFile_OKI(const char* path, const ImagePlace& place);

/// Prints `length` bytes of an image as they are, or as base64 text, after a second of pause; before the image is
/// turned, or not, comes another one with `pausesTwice`. Results as printImageFile_OKI; -6 also for what is neither an
/// image nor base64, -31 without memory.
[[nodiscard]] int printImageStream_OKI(const unsigned char* data, int length, const ImagePlace& place,
                                       bool pausesTwice);

}  // namespace passbook
