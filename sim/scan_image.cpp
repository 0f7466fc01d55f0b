#include "sim/scan_image.h"

#include <algorithm>
#include <utility>

namespace passbook::sim {

namespace {

constexpr int colourBits = 24;

/// By how much the picture grows, in halves.
int growth(Resolution resolution) {
    switch (resolution) {
        case Resolution::dpi600:
            return 6;
        case Resolution::dpi400:
            return 4;
        case Resolution::dpi300:
            return 3;
        case Resolution::dpi200:
            break;
    }
    return 2;
}

int dotsPerMetre(Resolution resolution) {
    constexpr int lowest = 7874;  // 200 dots per inch
    return lowest * growth(resolution) / 2;
}

/// A grey level of so many bits from a pixel.
unsigned greyLevel(const std::uint8_t* bgr, int bits) {
    const unsigned grey = (114U * bgr[0] + 587U * bgr[1] + 299U * bgr[2] + 500U) / 1000U;
    const unsigned white = (1U << bits) - 1U;
    return (grey * white + 127U) / 255U;
}

void append(std::vector<std::uint8_t>& to, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        to.push_back(static_cast<std::uint8_t>(value >> 8 * i));
}

std::uint32_t paletteEntries(int bits) {
    return bits == colourBits ? 0U : 1U << bits;
}

constexpr std::size_t bmpHeaderBytes = 54;
constexpr std::size_t paletteEntryBytes = 4;

std::size_t bmpStride(const ScanImage& image) {
    return (image.rowBytes() + 3) / 4 * 4;
}

std::size_t bmpDataOffset(const ScanImage& image) {
    return bmpHeaderBytes + paletteEntryBytes * paletteEntries(image.bits());
}

}  // namespace

ScanImage::ScanImage(Document document, int bits, Resolution resolution)
    : document_(std::move(document)), bits_(bits), resolution_(resolution) {
    if (document_.empty() || document_.width > maxScanPixels || document_.height > maxScanPixels)
        return;
    width_ = document_.width * growth(resolution) / 2;
    height_ = document_.height * growth(resolution) / 2;
    bgr_.resize(3 * static_cast<std::size_t>(document_.width));
}

std::size_t ScanImage::rowBits() const {
    return static_cast<std::size_t>(width_) * static_cast<std::size_t>(bits_);
}

bool ScanImage::empty() const {
    return width_ == 0 || width_ > maxScanPixels || height_ > maxScanPixels;
}

void ScanImage::row(int y, std::span<std::uint8_t> to) {
    const int step = growth(resolution_);
    const int from = y * 2 / step;
    if (bits_ == colourBits && step == 2) {
        document_.row(from, to);
        return;
    }
    document_.row(from, bgr_);
    if (bits_ != colourBits)
        std::fill(to.begin(), to.end(), std::uint8_t{0});
    for (int x = 0; x < width_; ++x) {
        const std::uint8_t* pixel = bgr_.data() + static_cast<std::ptrdiff_t>(x * 2 / step) * 3;
        if (bits_ == colourBits) {
            std::copy_n(pixel, 3, to.begin() + static_cast<std::ptrdiff_t>(x) * 3);
            continue;
        }
        const auto bit = static_cast<std::size_t>(x) * static_cast<std::size_t>(bits_);
        const unsigned shift = 8U - static_cast<unsigned>(bit % 8) - static_cast<unsigned>(bits_);
        to[bit / 8] = static_cast<std::uint8_t>(to[bit / 8] | greyLevel(pixel, bits_) << shift);
    }
}

ScanBytes::ScanBytes(ScanImage image, Form form, bool fromBottom)
    : image_(std::move(image)), form_(form), fromBottom_(fromBottom), row_(image_.rowBytes()) {
    const auto rows = static_cast<std::uint64_t>(image_.height());
    if (form_ == Form::raw) {
        size_ = image_.rowBits() * rows / 8;
    } else {
        size_ = bmpDataOffset(image_) + bmpStride(image_) * rows;
        makeHeader();
    }
}

std::vector<std::uint8_t> ScanBytes::take(std::size_t count) {
    std::vector<std::uint8_t> taken;
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(count, left()));
    taken.reserve(wanted);
    while (taken.size() < wanted) {
        if (readyAt_ == ready_.size()) {
            ready_.clear();
            readyAt_ = 0;
            fetchRow();
        }
        const std::size_t now = std::min(wanted - taken.size(), ready_.size() - readyAt_);
        const auto first = ready_.begin() + static_cast<std::ptrdiff_t>(readyAt_);
        taken.insert(taken.end(), first, first + static_cast<std::ptrdiff_t>(now));
        readyAt_ += now;
    }
    done_ += wanted;
    return taken;
}

void ScanBytes::makeHeader() {
    const std::uint32_t entries = paletteEntries(image_.bits());
    const auto height = static_cast<std::uint32_t>(image_.height());
    const auto dots = static_cast<std::uint32_t>(dotsPerMetre(image_.resolution()));
    ready_ = {'B', 'M'};
    append(ready_, static_cast<std::uint32_t>(size_), 4);
    append(ready_, 0, 4);
    append(ready_, static_cast<std::uint32_t>(bmpDataOffset(image_)), 4);
    append(ready_, 40, 4);
    append(ready_, static_cast<std::uint32_t>(image_.width()), 4);
    append(ready_, fromBottom_ ? height : 0U - height, 4);
    append(ready_, 1, 2);
    append(ready_, static_cast<std::uint32_t>(image_.bits()), 2);
    append(ready_, 0, 4);
    append(ready_, static_cast<std::uint32_t>(size_ - bmpDataOffset(image_)), 4);
    append(ready_, dots, 4);
    append(ready_, dots, 4);
    append(ready_, entries, 4);
    append(ready_, 0, 4);
    for (std::uint32_t level = 0; level < entries; ++level)
        append(ready_, level * 255U / (entries - 1U) * 0x010101U, 4);
}

void ScanBytes::fetchRow() {
    const int y = fromBottom_ ? image_.height() - 1 - rowsFetched_ : rowsFetched_;
    ++rowsFetched_;
    image_.row(y, row_);
    std::size_t bits = image_.rowBits();
    if (form_ == Form::bitmap || (bits % 8 == 0 && carryBits_ == 0)) {
        ready_ = row_;
        ready_.resize(form_ == Form::bitmap ? bmpStride(image_) : row_.size());
        return;
    }
    for (const std::uint8_t byte : row_) {
        const auto used = static_cast<unsigned>(std::min<std::size_t>(bits, 8));
        bits -= used;
        carry_ = carry_ << used | static_cast<unsigned>(byte) >> (8U - used);
        carryBits_ += used;
        if (carryBits_ >= 8) {
            carryBits_ -= 8;
            ready_.push_back(static_cast<std::uint8_t>(carry_ >> carryBits_));
        }
    }
}

}  // namespace passbook::sim
