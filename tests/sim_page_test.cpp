#include <gtest/gtest.h>
#include <png.h>

#include <algorithm>
#include <string>
#include <vector>

#include "tests/sim_bench.h"

namespace passbook::sim {
namespace {

// What text has darkened in some rows: the first column, one behind the last, and how much it is in all.
struct Ink {
    int first = kMaxPageWidthDots;
    int end = 0;
    int sum = 0;
};

Ink inkIn(const Page& page, int top, int bottom) {
    Ink ink;
    for (int y = top; y < bottom; ++y) {
        for (int x = 0; x < page.width(); ++x) {
            ink.sum += page.textInk(x, y);
            if (page.textInk(x, y) > 127) {
                ink.first = std::min(ink.first, x);
                ink.end = std::max(ink.end, x + 1);
            }
        }
    }
    return ink;
}

TEST(Text, FillsItsCells) {
    // Twenty letters, or ten Chinese characters, at 30 dots from the left: where their ink ends.
    struct Case {
        std::string format;
        std::string text;
        int widthDots;
        int heightDots;
    };
    const std::string latin(20, 'M');
    const std::string chinese = "\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA";
    const std::vector<Case> cases = {
        {"\033a3", latin, 240, 24},
        {"\033a8", latin, 212, 24},
        {"\033a3", chinese, 240, 24},
        {"\033a3\0334\x1Cj", latin, 480, 24},
        {"\033a3\0334\x1Ch\0333\x1Cj", latin + chinese, 480, 24},
        {"\033a3\033w2", chinese, 240, 72},
    };
    for (const Case& row : cases) {
        Bench bench;
        bench.send(row.format + "\033/10400\033|A020" + row.text + "\r");
        const Page& page = *bench.printer.page();
        SCOPED_TRACE(testing::PrintToString(row.format + row.text));
        const int bottom = 300 + row.heightDots;
        const Ink ink = inkIn(page, 300, bottom);
        EXPECT_NEAR(ink.first, 30, 5);
        EXPECT_NEAR(ink.end, 30 + row.widthDots, 5);
        EXPECT_GT(inkIn(page, bottom - row.heightDots / 3, bottom).sum, 0) << "as high as its cell";
        EXPECT_EQ(inkIn(page, 0, 300).sum + inkIn(page, bottom, page.height()).sum, 0) << "and no higher";
    }
}

// What a picture's reader gets: the dots where they are, paper and what lies beside it, the resolution.
TEST(Picture, ShowsThePage) {
    Bench bench({.pageWidthDots = 20, .pageHeightDots = 30});
    bench.send(columnAt(2, 4, "\x01\0\0"s) + columnAt(20, 4, "\x01\0\0"s));
    const std::vector<std::uint8_t> file = bench.printer.page()->png();
    const std::string text(file.begin(), file.end());
    EXPECT_EQ(text.substr(37, 13), "pHYs\0\0\033\xAF\0\0\033\xAF\x01"s);

    png_image picture{};
    picture.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_memory(&picture, file.data(), file.size()), 0);
    ASSERT_EQ(picture.width, 200U);
    picture.format = PNG_FORMAT_GRAY;
    std::vector<std::uint8_t> pixels(PNG_IMAGE_SIZE(picture));
    ASSERT_NE(png_image_finish_read(&picture, nullptr, pixels.data(), 0, nullptr), 0);
    const auto grey = [&](std::size_t x, std::size_t y) { return pixels[y * 200 + x]; };
    EXPECT_EQ(grey(3, 3), 0);
    EXPECT_EQ(grey(4, 3), 255);
    EXPECT_EQ(grey(3, 2), 255);
    EXPECT_EQ(grey(30, 3), 0);
    EXPECT_TRUE(grey(31, 3) > 200 && grey(31, 3) < 255) << "not paper, and no ink";
}

}  // namespace
}  // namespace passbook::sim
