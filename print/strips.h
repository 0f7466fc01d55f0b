// The walk over a one-bit picture that both families share: blank rows are passed over, the rest goes out in
// strips of 24 rows, and each strip in runs of columns with the long blank gaps left out.
#pragma once

#include <cstddef>
#include <memory>
#include <new>

#include "base/results.h"
#include "device/outcome.h"
#include "print/raster.h"

namespace passbook {

/// The next run of columns to send, and the blank columns behind it to be passed over.
struct Segment {
    int run = 0;
    int gap = 0;
};

/// Looks at `count` packed columns. A gap of up to 60 blank columns between two inked ones, or before the
/// first, is cheaper sent than jumped over and joins the run; blank columns at the end never do.
inline void findStripPixel(const unsigned char* columns, int count, int* gap, int* run) {
    constexpr int longestSentGap = 60;
    for (int i = 0; i < count; ++i, columns += columnBytes) {
        if ((columns[0] | columns[1] | columns[2]) == 0) {
            ++*gap;
        } else if (*gap > longestSentGap) {
            return;
        } else {
            *run += *gap + 1;
            *gap = 0;
        }
    }
}

/// Prints a one-bit picture of `width` x `height` pixels. The family says how:
///
///   int begin()                        before the first row; a result below 0 ends the picture
///   void pack(width, rowsLeft, strip, columns)
///   void startStrip(row)               places the head for the strip that begins at this row of the picture
///   int sendRun(first, columns, count) prints columns; `first` when no segment of the strip went before
///   int passGap(first, column, gap)    moves the head to this column, over a gap; `first` when nothing of the strip,
///                                      neither run nor gap, went before
///   void endStrip()
///
/// A result of sendRun or passGap that is not 0 ends the picture and is returned. 0 when all went out; -31
/// without memory for a strip, when nothing has been sent.
template <typename Family>
[[nodiscard]] int walkStrips(int width, int height, const unsigned char* image, Family family) {
    const auto stripBytes = height > 0 ? static_cast<std::size_t>(width) * columnBytes : 0;
    const std::unique_ptr<unsigned char[]> strip(new (std::nothrow) unsigned char[stripBytes]);
    if (strip == nullptr)
        return noMemory;
    const std::size_t stride = oneBitStrideBytes(width);
    const auto rowAt = [&](int row) { return image + static_cast<std::size_t>(row) * stride; };

    if (const int result = family.begin(); result < 0)
        return result;
    // Paper moves in steps of 3 dots: a strip takes blank rows in until it begins on such a step.
    const auto nextStrip = [&](int row) {
        const int first = row;
        while (row < height && isBlankRow(width, rowAt(row)) == 1)
            ++row;
        return row < height ? row - (row - first) % 3 : height;
    };
    int total = 0;
    for (int row = nextStrip(0); row < height; row = nextStrip(row + stripRows))
        ++total;
    int done = 0;
    for (int row = nextStrip(0); row < height; row = nextStrip(row + stripRows)) {
        if (!goOn(done++, total))
            return cancelled;
        family.pack(width, height - row, rowAt(row), strip.get());
        family.startStrip(row);
        if (isEnding())
            return cancelled;
        for (int column = 0; column < width;) {
            const bool first = column == 0;
            Segment segment;
            findStripPixel(strip.get() + static_cast<std::size_t>(column) * columnBytes, width - column, &segment.gap,
                           &segment.run);
            if (segment.run > 0) {
                const int result =
                    family.sendRun(first, strip.get() + static_cast<std::size_t>(column) * columnBytes, segment.run);
                if (result != 0)
                    return result;
            }
            column += segment.run + segment.gap;
            if (column < width) {
                if (const int result = family.passGap(first && segment.run == 0, column, segment.gap); result != 0)
                    return result;
            }
        }
        family.endStrip();
    }
    haveDone(total, total);
    return 0;
}

/// Prints a BMP file with the family's ways to send a one-bit picture and to eject.
[[nodiscard]] inline int printBitmapFile(const char* path, bool eject, int x, int y,
                                         int (*sendPicture)(int, int, const unsigned char*, int, int),
                                         int (*ejectPaper)()) {
    OneBitPicture picture;
    if (const int result = picture.load(path); result != 0)
        return result;
    const int result = sendPicture(picture.width, picture.height, picture.data.get(), x, y);
    if (eject)
        (void)ejectPaper();  // the document has to come out, and the picture's result is the one that counts
    return result;
}

}  // namespace passbook
