#include "bench/pages.h"

#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <random>

#include "image/bmp.h"
#include "image/convert.h"
#include "image/handles.h"

namespace passbook::bench {

namespace {

int stride(const Size& size, bool grey) {
    return (size.width * (grey ? 1 : 3) + 3) / 4 * 4;
}

/// Letters of 5 x 7 squares in lines with margins; a square is as wide as a thin stroke of print.
bool inked(const Size& size, int x, int y) {
    const int square = std::max(1, size.width / 350);
    const int column = x / square, row = y / square;
    const int letter = column / 6, line = row / 11;
    std::uint32_t shape =
        (static_cast<std::uint32_t>(line) * 977 + static_cast<std::uint32_t>(letter) * 131) * 2654435761U;
    shape = (shape ^ shape >> 15) * 2246822519U;
    const std::uint32_t lineEnd = 30 + (static_cast<std::uint32_t>(line) * 2654435761U >> 8) % 60;
    const bool printed = x > size.width / 10 && x < size.width * 9 / 10 && y > size.height / 16 &&
                         y < size.height * 15 / 16 && static_cast<std::uint32_t>(letter) < lineEnd && line % 9 != 8 &&
                         shape % 6 != 0;
    const auto dot = static_cast<std::uint32_t>(column % 6 + 5 * (row % 11));
    return printed && column % 6 < 5 && row % 11 < 7 && (shape * (2 * dot + 1) >> 11) % 5 < 2;
}

/// A BMP, from the bottom as most writers do. The driver's own writer makes none with a colour table.
bool writeBmp(const Size& size, bool grey, const std::string& path) {
    const std::vector<unsigned char> rows = pixels(size, Kind::text, grey);
    if (!grey)
        return saveImageASBMP(size.width, size.height, 24, 1, 0, rows.data(), path.c_str()) == 0;
    const auto width = static_cast<std::uint32_t>(size.width), height = static_cast<std::uint32_t>(size.height);
    const std::uint32_t tableBytes = 1024, offset = 54 + tableBytes;
    const std::uint32_t fields[] = {offset + static_cast<std::uint32_t>(rows.size()),
                                    0,
                                    offset,
                                    40,
                                    width,
                                    height,
                                    8U << 16 | 1,
                                    0,
                                    0,
                                    0,
                                    0,
                                    0,
                                    0};  // lowest byte first, as on all that we measure on
    std::vector<unsigned char> table;
    for (unsigned level = 0; level < 256; ++level)
        table.insert(table.end(), {static_cast<unsigned char>(level), static_cast<unsigned char>(level),
                                   static_cast<unsigned char>(level), 0});
    const FileHandle file(std::fopen(path.c_str(), "wb"));
    return file != nullptr && std::fputs("BM", file.get()) >= 0 &&
           std::fwrite(fields, sizeof fields, 1, file.get()) == 1 &&
           std::fwrite(table.data(), tableBytes, 1, file.get()) == 1 &&
           std::fwrite(rows.data(), rows.size(), 1, file.get()) == 1;
}

bool writePng(const Size& size, const std::vector<unsigned char>& rows, const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(size.width);
    image.height = static_cast<png_uint_32>(size.height);
    image.format = PNG_FORMAT_BGR;
    return png_image_write_to_file(&image, path.c_str(), 0, rows.data(), stride(size, false), nullptr) != 0;
}

/// With red and blue exchanged, which no encoder minds.
bool writePpm(const Size& size, const std::vector<unsigned char>& rows, const std::string& path) {
    const FileHandle file(std::fopen(path.c_str(), "wb"));
    bool good = file != nullptr && std::fprintf(file.get(), "P6\n%d %d\n255\n", size.width, size.height) > 0;
    for (std::size_t at = 0; good && at < rows.size(); at += static_cast<std::size_t>(stride(size, false)))
        good = std::fwrite(rows.data() + at, static_cast<std::size_t>(size.width) * 3, 1, file.get()) == 1;
    return good;
}

}  // namespace

std::vector<unsigned char> pixels(const Size& size, Kind kind, bool grey) {
    std::mt19937 random(1);
    const int rowBytes = stride(size, grey);
    std::vector<unsigned char> rows(static_cast<std::size_t>(rowBytes) * static_cast<std::size_t>(size.height));
    const double scale = 1063.0 / size.width;
    for (int y = 0; y < size.height; ++y) {
        unsigned char* at = rows.data() + static_cast<std::size_t>(y) * static_cast<std::size_t>(rowBytes);
        for (int x = 0; x < size.width; ++x) {
            const auto noise = static_cast<unsigned>(random());
            const int level = kind == Kind::text
                                  ? (inked(size, x, y) ? 20 : 240) + static_cast<int>(noise % 4)
                                  : static_cast<int>(200 + 80 * std::sin(x * scale / 37) * std::cos(y * scale / 53)) +
                                        static_cast<int>(noise % 16) - 8;
            for (unsigned i = 0; i < (grey ? 1 : 3); ++i) {  // paper is a little yellow
                const int tint = grey ? 0 : static_cast<int>(noise >> (8 + i) & 1) - 2 * static_cast<int>(i);
                *at++ = static_cast<unsigned char>(std::clamp(level + tint, 0, 255));
            }
        }
    }
    return rows;
}

bool writePages(const Size& size, const std::string& directory) {
    const std::string name = directory + "/" + size.name;
    const std::vector<unsigned char> rows = pixels(size, Kind::text, false);
    return writeBmp(size, false, name + ".bmp") && writeBmp(size, true, name + "-grey.bmp") &&
           convertBMPtoJPG((name + ".bmp").c_str(), (name + ".jpg").c_str(), 85) == 0 &&
           writePng(size, rows, name + ".png") && writePpm(size, rows, name + ".ppm");
}

}  // namespace passbook::bench
