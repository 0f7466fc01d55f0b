// What was made fast on the way of a picture, held against the plain meaning of it.

#include <gtest/gtest.h>

#include <random>

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

TEST(Kernels, DoWhatTheyMean) {
    for (int width = 0; width <= 70; ++width) {
        SCOPED_TRACE(width);
        isThresholded(width);
    }
}

}  // namespace
}  // namespace passbook::tests
