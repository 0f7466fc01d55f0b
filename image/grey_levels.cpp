#include "image/grey_levels.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "base/results.h"
#include "image/bmp.h"
#include "image/bmp_header.h"

namespace passbook {

namespace {

/// Spreads packed indices of `Bits` bits each.
template <int Bits>
void spread(const unsigned char* packed, unsigned char* grey, int width, const unsigned char* levels) {
    constexpr int perByte = 8 / Bits;
    constexpr unsigned mask = (1U << Bits) - 1;
    for (int x = 0; x < width; ++x) {
        const int shift = (perByte - 1 - x % perByte) * Bits;
        grey[x] = levels[(static_cast<unsigned>(packed[x / perByte]) >> shift) & mask];
    }
}

}  // namespace

int GreyLevels::load(std::FILE* file, int dataOffset, int bitsPerPixel) {
    if (bitsPerPixel != 1 && bitsPerPixel != 4)
        return shortFile;
    bits_ = bitsPerPixel;
    std::array<tagRGBQUAD, 16> table{};
    const int indices = 1 << bits_;

    BmpHeader header;
    if (std::fseek(file, 0, SEEK_SET) != 0 || !header.read(file))
        return shortFile;
    // The table lies between the information header, however long its version is, and the rows.
    const std::int64_t tableOffset = std::int64_t{14} + header.infoSize();
    std::int64_t entries = header.colorsUsed() != 0 ? header.colorsUsed() : indices;
    entries = std::min(entries, std::max<std::int64_t>(0, (dataOffset - tableOffset) / 4));
    entries = std::min<std::int64_t>(entries, indices);
    if (entries == 0) {
        FormatColorPalette(table.data(), indices, 0);
    } else {
        const auto count = static_cast<std::size_t>(entries);
        if (std::fseek(file, static_cast<long>(tableOffset), SEEK_SET) != 0 ||
            std::fread(table.data(), sizeof(tagRGBQUAD), count, file) != count)
            return shortFile;
    }
    std::transform(table.begin(), table.end(), levels_, [](const tagRGBQUAD& entry) {
        return static_cast<unsigned char>((entry.rgbBlue + entry.rgbGreen + entry.rgbRed) / 3);
    });
    return 0;
}

void GreyLevels::expandRow(const unsigned char* packed, unsigned char* grey, int width) const {
    if (bits_ == 1)
        spread<1>(packed, grey, width, levels_);
    else
        spread<4>(packed, grey, width, levels_);
}

}  // namespace passbook
