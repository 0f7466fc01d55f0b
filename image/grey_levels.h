// Colour tables of BMP files with few bits a pixel.
#pragma once

#include <cstdio>

namespace passbook {

/// The grey levels that the pixels of a BMP of 1 or 4 bits stand for: the mean of blue, green and red in the
/// file's colour table or, without one, the even ramp from 0 to 255. Indices behind a short table's end are black.
class GreyLevels {
 public:
    /// Reads them, wherever the file stands. 0; -12 the table is short, or the depth is another one.
    [[nodiscard]] int load(std::FILE* file, int dataOffset, int bitsPerPixel);

    /// Spreads a row of packed indices, the leftmost pixel in the highest bits, into `width` bytes of grey.
    void expandRow(const unsigned char* packed, unsigned char* grey, int width) const;

 private:
    unsigned char levels_[16] = {};
    int bits_ = 1;
};

}  // namespace passbook
