// What was made fast on the way of a picture, held against the plain meaning of it.

#include <glib.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <random>

#include "image/convert.h"
#include "image/file.h"
#include "image/handles.h"
#include "print/raster.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

using Bytes = std::vector<unsigned char>;

std::mt19937 generator(11);
int random(int from, int to) {
    return std::uniform_int_distribution(from, to)(generator);
}

/// Paper, ink and what is close to the threshold, in stretches, for the kernels pass over what is of one kind. Not a byte
/// more than asked for, so that the sanitizers see what is read behind it.
Bytes noise(std::int64_t size) {
    constexpr std::pair<int, int> kinds[] = {{200, 255}, {0, 199}, {196, 203}, {0, 255}, {0, 0}};
    Bytes noise;
    noise.reserve(1);  // nothing has an address, too
    noise.resize(static_cast<std::size_t>(size));
    for (std::size_t i = 0, left = 0, kind = 0; i < noise.size(); ++i, --left) {
        if (left == 0) {
            left = static_cast<std::size_t>(random(1, 300));
            kind = static_cast<std::size_t>(random(0, 4));
        }
        noise[i] = static_cast<unsigned char>(random(kinds[kind].first, kinds[kind].second));
    }
    return noise;
}

void isThresholded(int width) {
    const auto columns = static_cast<std::size_t>(width), bitStride = oneBitStrideBytes(width);
    for (const std::size_t bits : {8U, 16U, 24U, 32U}) {
        for (const int threshold : {200, 200, 200, random(171, 255), random(1, 170), 0, -1, 256, 1000}) {
            constexpr std::size_t height = 3;
            const auto stride = static_cast<std::size_t>(bmpStrideBytes(width, static_cast<int>(bits)));
            Bytes before = noise(static_cast<std::int64_t>(stride * height));
            if (const int kind = random(0, 2); threshold == 200 && kind != 0)  // one byte that no block may miss
                for (std::size_t i = 0, odd = 0; i < before.size(); ++i) {
                    odd = i % stride == 0 ? i + static_cast<std::size_t>(random(0, 127)) : odd;
                    before[i] = static_cast<unsigned char>(kind == 1 ? (i == odd ? 0 : 255) : (i == odd ? 255 : 190));
                }
            Bytes image = before;
            BinaryImage(width, height, static_cast<int>(bits), image.data(), threshold);
            std::string expected, found;
            for (std::size_t i = 0; i < columns * height; ++i) {
                const std::size_t x = i % columns, y = i / columns;
                const unsigned char* const row = before.data() + y * stride;
                const unsigned char* const pixel = row + x * bits / 8;
                const int level = bits < 24 ? row[x] : (pixel[0] + pixel[1] + pixel[2]) / 3;
                expected += level < threshold ? '1' : '0';
                found += (image[y * bitStride + x / 8] >> (7 - x % 8) & 1) != 0 ? '1' : '0';
            }
            EXPECT_EQ(found, expected) << bits << " bits, threshold " << threshold;
        }
    }
}

void isPacked(int width) {
    const auto columns = static_cast<std::size_t>(width), bitStride = oneBitStrideBytes(width);
    for (int round = 0; round < 40; ++round) {
        const int rows = round == 0 ? 0 : random(1, 30), used = std::min(rows, stripRows);
        const Bytes strip = noise(static_cast<std::int64_t>(bitStride) * used);
        Bytes oki(columns * columnBytes), oli = oki, foundOki(oki.size(), 0xAA), foundOli = foundOki;
        for (std::size_t x = 0; x < columns; ++x) {
            for (std::size_t y = 0; y < static_cast<std::size_t>(used); ++y) {
                const unsigned ink = strip[y * bitStride + x / 8] >> (7 - x % 8) & 1U;
                oki[x * columnBytes + y / 8] |= static_cast<unsigned char>(ink << (7 - y % 8));
                oli[x * columnBytes + y / 8] |= static_cast<unsigned char>(ink << y % 8);
            }
        }
        std::replace(oli.begin(), oli.end(), 0x1B, 0x1A);  // it would end the run
        AdjustDataOrder(width, rows, strip.data(), foundOki.data());
        AdjustDataOrder_OLI(width, rows, strip.data(), foundOli.data());
        EXPECT_EQ(std::pair(foundOki, foundOli), std::pair(oki, oli)) << rows << " rows";
        EXPECT_TRUE(rows == 0 ||
                    (isBlankRow(width, strip.data()) == 1) ==
                        std::all_of(strip.begin(), strip.begin() + width / 8, [](auto byte) { return byte == 0; }));
    }
}

void isTurned(int width) {
    const TemporaryDirectory directory;
    const std::string source = directory.file("a.bmp"), turned = directory.file("b.bmp");
    for (const int bits : {1, 4, 8, 24, 32}) {
        const int height = random(1, 140), from = width > 0 ? width : 200;  // a file has no width of 0
        const Bytes stored = noise(bmpStrideBytes(from, bits) * height);
        writeFile(source, BmpHeader{from, random(0, 1) != 0 ? height : -height, bits}.text() +
                              std::string(stored.begin(), stored.end()));
        const LoadedBmp picture(source);
        ASSERT_EQ(picture.code, 0);
        const int pixelBytes = std::max(bits, 8) / 8;
        const auto at = [&](int x, int y, int rowWidth) {
            return static_cast<std::size_t>(y * bmpStrideBytes(rowWidth, 8 * pixelBytes) + x * pixelBytes);
        };
        for (const int angle : {90, 180, 270}) {
            const int newWidth = angle == 180 ? from : height, newHeight = angle == 180 ? height : from;
            std::string expected(at(0, newHeight, newWidth), '\xFF');  // white between the rows
            for (int i = 0; i < from * height; ++i) {
                const int x = i % from, y = i / from, fromRight = from - 1 - x, fromBottom = height - 1 - y;
                const std::size_t to = angle == 90    ? at(fromBottom, x, newWidth)
                                       : angle == 180 ? at(fromRight, fromBottom, newWidth)
                                                      : at(y, fromRight, newWidth);
                expected.replace(to, static_cast<std::size_t>(pixelBytes), picture.rows, at(x, y, from),
                                 static_cast<std::size_t>(pixelBytes));
            }
            EXPECT_EQ(rorateImage(source.c_str(), turned.c_str(), angle), 0);
            EXPECT_TRUE(readFile(turned).substr(bmpHeaderBytes) == expected) << bits << " bits by " << angle;
            struct stat status {};
            EXPECT_EQ(stat(turned.c_str(), &status), 0);
            EXPECT_EQ(status.st_mode & 0777, 0600U);
        }
    }
}

void getsItsBlueFirst(int width) {
    for (const std::size_t pixelBytes : {3U, 4U}) {
        Bytes row = noise(4 * width);
        std::string expected;
        for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x)
            for (const std::size_t colour : {2U, 1U, 0U})
                expected += static_cast<char>(row[x * pixelBytes + colour]);
        expected.resize(static_cast<std::size_t>(bmpStrideBytes(width, 24)));
        char* written = nullptr;
        std::size_t size = 0;
        FileHandle file(open_memstream(&written, &size));
        EXPECT_EQ(writePNGrow(file.get(), row.data(), width, static_cast<int>(pixelBytes)), 0);
        file.reset();
        EXPECT_TRUE(std::string(written, size) == expected) << pixelBytes;
        std::free(written);
    }
}

void comesFromBase64(int width) {
    const Bytes data = noise(width);
    const std::unique_ptr<gchar, decltype(&g_free)> encoded(g_base64_encode(data.data(), data.size()), g_free);
    std::string text = encoded.get();
    for (int breaks = 4 * random(0, 2); breaks > 0; --breaks)  // as mail has them
        text.insert(static_cast<std::size_t>(random(0, static_cast<int>(text.size()))), "\n");
    Bytes decoded(3 * text.size() / 4);
    int length = 0;
    EXPECT_EQ(base64_decode(octets(text.data()), static_cast<int>(text.size()), decoded.data(), &length),
              text.empty() ? -1 : 0);
    decoded.resize(static_cast<std::size_t>(length));
    EXPECT_EQ(decoded, data) << text;
}

TEST(Kernels, DoWhatTheyMean) {
    for (int width = 0; width <= 70; ++width) {
        SCOPED_TRACE(width);
        isThresholded(width);
        isPacked(width);
        isTurned(width);
        getsItsBlueFirst(width);
        comesFromBase64(width);
    }
}

}  // namespace
}  // namespace passbook::tests
