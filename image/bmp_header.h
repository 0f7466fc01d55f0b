// The bytes at the start of a BMP file.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>

#include "image/bmp.h"

namespace passbook {

/// Both headers, as they stand in the file.
class BmpHeader {
 public:
    BmpHeader() = default;
    /// Of a file with nothing between the headers and the rows. `bitCount` is what the file tells as its depth.
    BmpHeader(int width, int storedHeight, int bitCount, std::uint32_t imageSize) {
        put16(atType, 0x4D42);  // "BM"
        put32(atFileSize, bmpHeaderBytes + imageSize);
        put32(atDataOffset, bmpHeaderBytes);
        put32(atInfoSize, 40);
        put32(atWidth, static_cast<std::uint32_t>(width));
        put32(atHeight, static_cast<std::uint32_t>(storedHeight));
        put16(atPlanes, 1);
        put16(atBitCount, static_cast<std::uint32_t>(bitCount));
        put32(atImageSize, imageSize);
    }

    /// From where the file stands. False when it ends before.
    [[nodiscard]] bool read(std::FILE* file) {
        return std::fread(bytes_.data(), 1, bytes_.size(), file) == bytes_.size();
    }
    /// A disk that is full is found when the file is closed.
    void write(std::FILE* file) const { (void)std::fwrite(bytes_.data(), 1, bytes_.size(), file); }

    [[nodiscard]] BmpGeometry geometry() const {
        return {static_cast<int>(get32(atWidth)), static_cast<int>(get32(atHeight)),
                static_cast<int>(get32(atDataOffset)), static_cast<int>(get16(atBitCount))};
    }
    [[nodiscard]] std::uint32_t infoSize() const { return get32(atInfoSize); }
    [[nodiscard]] std::uint32_t colorsUsed() const { return get32(atColorsUsed); }

 private:
    enum : std::size_t {
        atType = 0,
        atFileSize = 2,
        atDataOffset = 10,
        atInfoSize = 14,
        atWidth = 18,
        atHeight = 22,
        atPlanes = 26,
        atBitCount = 28,
        atImageSize = 34,
        atColorsUsed = 46,
    };

    void put16(std::size_t at, std::uint32_t value) {
        bytes_[at] = static_cast<unsigned char>(value);
        bytes_[at + 1] = static_cast<unsigned char>(value >> 8);
    }
    void put32(std::size_t at, std::uint32_t value) {
        put16(at, value);
        put16(at + 2, value >> 16);
    }
    [[nodiscard]] std::uint32_t get16(std::size_t at) const {
        return bytes_[at] | static_cast<std::uint32_t>(bytes_[at + 1]) << 8;
    }
    [[nodiscard]] std::uint32_t get32(std::size_t at) const { return get16(at) | get16(at + 2) << 16; }

    std::array<unsigned char, bmpHeaderBytes> bytes_{};
};

}  // namespace passbook
