// Pictures: whatever is printed must be, dot by dot, the threshold of the picture.
#include <glib.h>
#include <zlib.h>

#include <algorithm>
#include <optional>
#include <set>

#include "api/passbook.h"
#include "fuzz/line.h"
#include "fuzz/target.h"
#include "image/convert.h"
#include "tests/plain_picture.h"

namespace passbook::fuzz {

using sim::Family;
using tests::Picture;

namespace {

constexpr int xMm = 3, yMm = 2, xDots = 21, yDots = 12;  // a place that both printers reach exactly

/// A BMP read in the plainest way; nothing when it is one that readers may differ about.
std::optional<Picture> plainBmp(const std::string& file) {
    const auto at = [&](std::size_t place) { return static_cast<std::size_t>(static_cast<std::uint8_t>(file[place])); };
    const auto number = [&](std::size_t place) {
        return static_cast<std::int32_t>(at(place) | at(place + 1) << 8 | at(place + 2) << 16 | at(place + 3) << 24);
    };
    if (file.size() < 54 || number(14) != 40 || number(46) != 0)
        return {};
    const std::int64_t begin = number(10), width = number(18), stored = number(22), rows = std::abs(stored);
    const auto bits = static_cast<std::int64_t>(at(28) | at(29) << 8);
    const std::int64_t stride = (width * bits + 31) / 32 * 4, entries = bits < 8 ? 1 << bits : 0;
    if (!std::set<std::int64_t>{1, 4, 8, 24, 32}.contains(bits) || width < 1 || width > 32767 || rows < 1 ||
        begin < 54 + 4 * entries || begin + stride * rows > static_cast<std::int64_t>(file.size()))
        return {};
    Picture picture(static_cast<int>(width), static_cast<int>(rows));
    const auto mean = [&](std::size_t place) { return (at(place) + at(place + 1) + at(place + 2)) / 3; };
    for (int y = 0; y < picture.height; ++y)
        for (int x = 0; x < picture.width; ++x) {
            const auto row = static_cast<std::size_t>(begin + stride * (stored < 0 ? y : rows - 1 - y));
            const std::size_t bit = static_cast<std::size_t>(x) * static_cast<std::size_t>(bits), byte = row + bit / 8,
                              shift = (8 - bit % 8 - static_cast<std::size_t>(bits)) % 8;
            const std::size_t grey = bits < 8    ? mean(54 + 4 * (at(byte) >> shift & ((1U << bits) - 1)))
                                     : bits == 8 ? at(byte)
                                                 : mean(byte);
            picture.at(x, y) = static_cast<std::uint8_t>(grey);
        }
    return picture;
}

/// Whether the printer's head steps can place all of it exactly: no part behind a gap that is jumped over begins between
/// two of them.
bool isReachedExactly(Picture dots) {
    constexpr int widestSent = 60;
    for (int y = 0; y < dots.height; ++y)
        for (int x = 0, blank = 0; x < dots.width; ++x) {
            const bool ink = dots.at(x, y) == 0;
            if (ink && blank > widestSent && (xDots + x) % 3 == 1)
                return false;
            blank = ink ? 0 : blank + 1;
        }
    return true;
}

/// Prints a file, and compares the page with the picture.
void print(Family family, const std::string& path, int turns, std::optional<Picture> picture) {
    for (int i = 0; i < turns && picture; ++i)
        picture = tests::turnedOnce(*picture);
    // Ink beyond the page is nobody's matter here.
    const bool compared = picture && picture->width <= 1400 && picture->height <= 7000;
    Desk desk({.family = family,
               .pageWidthDots = compared ? picture->width + 60 : 600,
               .pageHeightDots = compared ? picture->height + 60 : 600});
    const bool oli = family == Family::oli;
    const int result = oli ? YARDO_PrintBmpOLI(path.c_str(), false, xMm, yMm)
                           : PT_PrintImageFileRevolve("line", 0, 1, 10 * xMm, 10 * yMm, 0, path.c_str(), turns);
    require((std::set{0, -1, -6, -11, -12, -13, -31}).contains(result), "a documented result");
    require(desk.mistake.empty(), "the printer understands all of it: " + desk.mistake);
    if (!compared)
        return;
    require(result == 0, "a picture that fits is printed, not " + std::to_string(result));
    require(desk.page() != nullptr, "the page is there");
    Picture dots = tests::expectedDots(*picture, family);
    if (isReachedExactly(dots)) {
        require(tests::differences(*desk.page(), dots, xDots, yDots) == 0, "the page shows the picture");
        return;
    }
    std::ptrdiff_t ink = 0;
    for (int y = 0; y < desk.page()->height(); ++y)
        for (int x = 0; x < desk.page()->width(); ++x)
            ink += desk.page()->dot(x, y) ? 1 : 0;
    require(ink == std::count(dots.grey.begin(), dots.grey.end(), 0), "the page has the ink of the picture");
}

/// Chunks with the right check sums: libpng looks at no others, and a fuzzer does not find them.
std::string withSums(std::string_view bytes) {
    std::string png(bytes);
    for (std::size_t at = 8; at + 12 <= png.size();) {
        std::size_t length = 0;
        for (std::size_t i = 0; i < 4; ++i)
            length = length << 8 | static_cast<std::uint8_t>(png[at + i]);
        if (length > png.size() - at - 12)
            break;
        const auto sum = crc32(0, tests::octets(png.data() + at + 4), static_cast<uInt>(length + 4));
        for (std::size_t i = 0; i < 4; ++i)
            png[at + 8 + length + i] = static_cast<char>(sum >> (24 - 8 * i));
        at += length + 12;
    }
    return png;
}

void printConverted(IMAGE_FORMAT wanted, int (*convert)(const char*, const char*), Input input) {
    const int turns = input.upTo(3);
    const std::string path = fileOf("picture"), bmp = fileOf("model.bmp");
    tests::writeFile(path, wanted == formatPng ? withSums(input.rest()) : std::string(input.rest()));
    const bool good = convert(path.c_str(), bmp.c_str()) == 0;
    IMAGE_FORMAT format = notRecognised;
    std::optional<Picture> picture;
    if (good && identifyFileFormat(path.c_str(), &format) == 0 && format == wanted)
        picture = plainBmp(tests::readFile(bmp));
    print(Family::oki, path, turns, picture);
    print(Family::oli, path, 0, std::nullopt);
}

/// What the driver writes for an image in memory, and what it returns.
std::pair<int, std::string> streamed(const Exact& image, int turns) {
    Desk desk({.family = Family::oki});
    const int result = turns == 0
                           ? PT_PrintImageStream("line", 0, 1, 0, 0, 0, image.octets(), image.length)
                           : PT_PrintImageStreamRevolve("line", 0, 1, 0, 0, 0, image.octets(), image.length, turns);
    return {result, desk.sent};
}

void printBmp(Input input) {
    const std::string path = fileOf("picture.bmp"), file(input.rest());
    tests::writeFile(path, file);
    const std::optional<Picture> picture = plainBmp(file);
    print(Family::oli, path, 0, picture);
    print(Family::oki, path, 0, file.starts_with("BM") ? picture : std::nullopt);
}

void printStream(Input input) {
    const int turns = input.upTo(3);
    const Exact image(input.rest());
    const auto [result, sent] = streamed(image, turns);
    require((std::set{0, -1, -6, -11, -12, -13, -31}).contains(result), "a documented result");
    // What is base64 beyond doubt is printed as what GLib decodes it to.
    const std::string text(input.rest());
    const std::size_t pads = text.size() - std::min(text.size(), text.find_last_not_of('=') + 1);
    const bool strict = text.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/") ==
                            (pads == 0 ? std::string::npos : text.size() - pads) &&
                        text.size() % 4 == 0 && pads <= 2 && !text.empty();
    if (!strict)
        return;
    gsize length = 0;
    guchar* const decoded = g_base64_decode(text.c_str(), &length);
    const Exact plain({reinterpret_cast<const char*>(decoded), length});
    g_free(decoded);
    const std::string_view head(plain.bytes.get(), length);
    if (head.starts_with("BM") || head.starts_with("\xFF\xD8") || head.starts_with("\x89PNG"))
        require(streamed(plain, turns) == std::pair(result, sent), "base64 text prints as what it stands for");
}

void printTurned(Input input) {
    const int turns = input.upTo(3);
    const std::string path = fileOf("picture.bmp"), file(input.rest());
    tests::writeFile(path, file);
    print(Family::oki, path, turns, file.starts_with("BM") ? plainBmp(file) : std::nullopt);
}

constexpr Target table[] = {
    {"bmp", 8192, printBmp, "pictures"},
    {"jpeg", 8192, [](Input input) { printConverted(formatJpeg, convertJPGtoBMP, input); }, "pictures"},
    {"png", 4096, [](Input input) { printConverted(formatPng, convertPNGtoBMP, input); }, "pictures"},
    {"stream", 4096, printStream, "pictures"},
    {"turning", 8192, printTurned, "pictures"},
};

}  // namespace

const std::span<const Target> pictureTargets = table;

}  // namespace passbook::fuzz
