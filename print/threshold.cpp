#include "print/threshold.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

namespace passbook {

namespace {

/// Pixels that are thresholded together: 4 bytes of the result.
constexpr int blockPixels = 32;

/// For every byte of a block the bit that its pixel has in the result, and 0 for all but a pixel's first byte.
template <int Step>
constexpr auto pixelBits = [] {
    std::array<unsigned char, blockPixels * Step> bits{};
    for (std::size_t x = 0; x < blockPixels; ++x)
        bits[x * Step] = static_cast<unsigned char>(0x80 >> x % 8);
    return bits;
}();

/// Adds up the bits of eight pixels of `Step` bytes each. No two have the same bit, so nothing is carried.
template <int Step>
unsigned char gathered(const unsigned char* bits) {
    std::uint64_t all = 0;
    for (int i = 0; i < Step; ++i) {
        std::uint64_t eight = 0;
        std::memcpy(&eight, bits + 8 * i, 8);
        all |= eight;
    }
    return static_cast<unsigned char>(all * 0x0101010101010101U >> 56);
}

/// The plain meaning: pixel by pixel, `Step` bytes apart, of which the first `Samples` count. `limit` is the threshold
/// of their sum: a mean, cut to an integer, is below the threshold exactly when the sum is below so many times it.
template <int Step, int Samples>
void thresholdPixels(const unsigned char* pixels, unsigned char* bits, int width, int limit) {
    for (int x = 0; x < width; x += 8, ++bits) {
        unsigned byte = 0;
        for (int i = 0; i < 8 && x + i < width; ++i, pixels += Step) {
            int sum = 0;
            for (int sample = 0; sample < Samples; ++sample)
                sum += pixels[sample];
            byte |= (sum < limit ? 0x80U : 0U) >> i;
        }
        *bits = static_cast<unsigned char>(byte);
    }
}

/// A block of colour, the same in arithmetic that the compiler turns into wide instructions: 8 bits, no branch, and every
/// byte of the block treated as if a pixel began there. Two bytes behind the block are read.
template <int Step>
void thresholdBlock(const unsigned char* pixels, unsigned char* bits, unsigned char lightest) {
    std::array<unsigned char, blockPixels * Step> flags;
    for (std::size_t i = 0; i < flags.size(); ++i) {
        // How much is missing to three times 255. It stops at 255, which is more than enough to be ink.
        const auto first = static_cast<unsigned char>(~pixels[i]);
        const auto two = static_cast<unsigned char>(first + std::min<unsigned char>(pixels[i], ~pixels[i + 1]));
        const auto three = static_cast<unsigned char>(two + std::min<unsigned char>(~two, ~pixels[i + 2]));
        flags[i] = static_cast<unsigned char>((three > lightest ? 0xFF : 0) & pixelBits<Step>[i]);
    }
    for (int i = 0; i < blockPixels / 8; ++i)
        bits[i] = gathered<Step>(flags.data() + 8 * Step * i);
}

unsigned char darkest(const unsigned char* bytes, int count) {
    unsigned char least = 255;
    for (int i = 0; i < count; ++i)
        least = std::min(least, bytes[i]);
    return least;
}

unsigned char lightest(const unsigned char* bytes, int count) {
    unsigned char most = 0;
    for (int i = 0; i < count; ++i)
        most = std::max(most, bytes[i]);
    return most;
}

/// Colour: blocks of one kind are told by their darkest and lightest bytes alone.
template <int Step>
void thresholdColour(const unsigned char* pixels, unsigned char* bits, int width, int threshold) {
    const int missing = 3 * (255 - threshold);  // that a pixel of just that mean has
    if (missing >= 0 && missing < 255) {
        for (; width > blockPixels; width -= blockPixels, pixels += blockPixels * Step, bits += blockPixels / 8)
            if (darkest(pixels, blockPixels * Step) >= threshold)
                std::memset(bits, 0, blockPixels / 8);
            else if (lightest(pixels, blockPixels * Step) < threshold)
                std::memset(bits, 0xFF, blockPixels / 8);
            else
                thresholdBlock<Step>(pixels, bits, static_cast<unsigned char>(missing));
    }
    thresholdPixels<Step, 3>(pixels, bits, width, 3 * threshold);
}

void thresholdGrey(const unsigned char* pixels, unsigned char* bits, int width, int threshold) {
    const auto lightestInk = static_cast<unsigned char>(threshold - 1);
    for (; threshold > 0 && width >= blockPixels;
         width -= blockPixels, pixels += blockPixels, bits += blockPixels / 8) {
        if (darkest(pixels, blockPixels) > lightestInk) {
            std::memset(bits, 0, blockPixels / 8);
            continue;
        }
        std::array<unsigned char, blockPixels> flags;
        for (std::size_t i = 0; i < flags.size(); ++i)
            flags[i] = static_cast<unsigned char>((pixels[i] <= lightestInk ? 0xFF : 0) & pixelBits<1>[i]);
        for (int i = 0; i < blockPixels / 8; ++i)
            bits[i] = gathered<1>(flags.data() + 8 * i);
    }
    thresholdPixels<1, 1>(pixels, bits, width, threshold);
}

}  // namespace

void thresholdRow(const unsigned char* pixels, int bitsPerPixel, unsigned char* bits, int width, int threshold) {
    threshold = std::clamp(threshold, 0, 256);  // grey is 0 to 255, so that a wild threshold keeps its meaning
    if (bitsPerPixel == 24)
        thresholdColour<3>(pixels, bits, width, threshold);
    else if (bitsPerPixel == 32)
        thresholdColour<4>(pixels, bits, width, threshold);
    else
        thresholdGrey(pixels, bits, width, threshold);
}

}  // namespace passbook
