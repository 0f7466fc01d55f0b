#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "sim/document.h"

namespace passbook::sim {

/// How finely a document is scanned: the two bits that the host sends. The numbers in the names are those a host thinks
/// of.
enum class Resolution : std::uint8_t { dpi600 = 0, dpi400 = 1, dpi300 = 2, dpi200 = 3 };

/// The largest picture the scanner makes: as far as the size fields of its messages reach.
inline constexpr int maxScanPixels = 65535;

/// One side of a document as the scanner sees it. At 200 dots per inch every pixel of the document becomes one pixel;
/// at finer resolutions pixels are repeated: 3 for 2 at 300, 2 for 1 at 400, 3 for 1 at 600.
///
/// 24 bits are blue, green, red. Of fewer bits each pixel is a grey level from 0, black, to the largest, white; pixels
/// follow one another from the highest bit of a byte down, and each row begins with a byte of its own.
class ScanImage {
 public:
    /// `bits`: 1, 4, 8 or 24.
    ScanImage(Document document, int bits, Resolution resolution);

    [[nodiscard]] int width() const { return width_; }
    [[nodiscard]] int height() const { return height_; }
    [[nodiscard]] int bits() const { return bits_; }
    [[nodiscard]] Resolution resolution() const { return resolution_; }
    [[nodiscard]] std::size_t rowBits() const;
    [[nodiscard]] std::size_t rowBytes() const { return (rowBits() + 7) / 8; }

    /// Nothing to be seen, or more than the messages can tell of.
    [[nodiscard]] bool empty() const;

    /// Fills in row `y` from the top, rowBytes() long; bits behind the last pixel are 0.
    void row(int y, std::span<std::uint8_t> to);

 private:
    Document document_;
    int bits_;
    Resolution resolution_;
    int width_ = 0;
    int height_ = 0;
    std::vector<std::uint8_t> bgr_;  // a row of the document
};

/// The bytes of a side as they go over the line, made row by row while they are read.
class ScanBytes {
 public:
    enum class Form {
        raw,     // rows without fill, one beginning in the middle of a byte if need be
        bitmap,  // a BMP file, with a grey palette below 24 bits
    };

    /// `fromBottom`: the last row comes first.
    ScanBytes(ScanImage image, Form form, bool fromBottom);

    [[nodiscard]] const ScanImage& image() const { return image_; }
    /// Of the whole side. Of raw rows a last byte that isn't full is left out: hosts expect whole ones.
    [[nodiscard]] std::uint64_t size() const { return size_; }
    [[nodiscard]] std::uint64_t left() const { return size_ - done_; }

    /// The next bytes, `count` of them or as many as there are left.
    [[nodiscard]] std::vector<std::uint8_t> take(std::size_t count);

 private:
    void makeHeader();
    void fetchRow();

    ScanImage image_;
    Form form_;
    bool fromBottom_;
    std::uint64_t size_ = 0;
    std::uint64_t done_ = 0;
    int rowsFetched_ = 0;
    std::vector<std::uint8_t> row_;
    std::vector<std::uint8_t> ready_;  // made and not yet taken, from readyAt_ on
    std::size_t readyAt_ = 0;
    unsigned carry_ = 0;  // bits of a raw row that don't fill a byte yet
    unsigned carryBits_ = 0;
};

}  // namespace passbook::sim
