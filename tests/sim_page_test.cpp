#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "tests/sim_bench.h"

namespace passbook::sim {
namespace {

using Places = std::vector<std::pair<int, int>>;

Places dotsOf(const Page& page) {
    Places dots;
    for (int y = 0; y < page.height(); ++y) {
        for (int x = 0; x < page.width(); ++x) {
            if (page.dot(x, y)) {
                dots.emplace_back(x, y);
            }
        }
    }
    return dots;
}

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

TEST(Bitmap, DotsLieExactlyWhereTheCommandsPutThem) {
    struct Case {
        int x, y;
        std::string column;
        Places dots;
    };
    const std::vector<Case> cases = {
        {0, 0, "\x01\x00\x00"s, {{0, 0}}},
        {0, 0, "\x80\x01\x80"s, {{0, 7}, {0, 8}, {0, 23}}},
        {0, 0, "\x03\x02\x80"s, {{0, 0}, {0, 1}, {0, 9}, {0, 23}}},
        // 66/120 inch are 99 dots; 33/120 and 1/120 lie on a half dot and go to the right.
        {66, 132, "\x01\x00\x00"s, {{99, 99}}},
        {33, 4, "\x01\x00\x00"s, {{50, 3}}},
        {1, 1, "\x01\x00\x00"s, {{2, 1}}},
        {2, 2, "\x01\x00\x00"s, {{3, 2}}},
        {0, 3, "\x01\x00\x00"s, {{0, 2}}},
        // The farthest the fields reach, beyond the paper.
        {999, 9999, "\x01\x00\x80"s, {{1499, 7499}, {1499, 7522}}},
    };
    for (const Case& row : cases) {
        Bench bench;
        bench.send(columnAt(row.x, row.y, row.column));
        EXPECT_EQ(dotsOf(*bench.printer.page()), row.dots) << row.x << ' ' << row.y;
        EXPECT_FALSE(bench.printer.page()->blank());
    }
}

TEST(Bitmap, RunsJoinAndOverlayEachOther) {
    Bench bench;
    // Two runs without a move in between, one across the first with other rows, and one without a column.
    bench.send("\033|A002\0331A000\x01\0\0\x01\0\0\0332\0331A000\x01\0\0\0332"s);
    bench.send("\033|A002\0331A000\x02\0\0\0332\0331A000ab\0332"s);
    EXPECT_EQ(dotsOf(*bench.printer.page()), (Places{{3, 0}, {4, 0}, {5, 0}, {3, 1}}));
    EXPECT_EQ(bench.last("malformed").at("columns"), 0);
    EXPECT_EQ(bench.last("malformed").at("xDots"), 4);
}

// A picture 100 dots wide with ink in columns 10 to 19 and 90 to 99 of its rows 7 to 53, at 50, 100: as an
// OKI host sends it, strip by strip.
TEST(Bitmap, OkiStripsFallIntoPlace) {
    Bench bench({.family = Family::kOki});
    const auto column = [](int first, int last) {
        std::string bytes(3, '\0');
        for (int row = first; row <= last; ++row) {
            bytes[static_cast<std::size_t>(row / 8)] |= static_cast<char>(0x80 >> row % 8);
        }
        return bytes;
    };
    const auto strip = [](std::string_view feed, const std::string& inked) {
        std::string bytes(feed);
        bytes += "\033%3\0\x32\033%1\0\x14"s + std::string(30, '\0');
        for (int i = 0; i < 20; ++i) {
            bytes += (i == 10 ? "\033%3\0\x46\033%1\0\x0A"s : "") + inked;
        }
        return bytes;
    };
    bench.send(strip("\033%5\x46", column(1, 23)) + strip("\033%5\x10", column(0, 23)));
    Places expected;
    // 106 dots are 35 times 2 feed units, and those 105 dots.
    for (int y = 106; y < 105 + 48; ++y) {
        for (const int x : {60, 140}) {
            for (int i = 0; i < 10; ++i) {
                expected.emplace_back(x + i, y);
            }
        }
    }
    EXPECT_EQ(dotsOf(*bench.printer.page()), expected);

    // Odd feeds are half dots, which aren't lost: 255 + 3 units and 2 of them once more.
    bench.send("\f\033%5\xFF\033%5\x01\033%5\x02\033%1\0\x01\x80\0\x01"s);
    EXPECT_EQ(dotsOf(*bench.printer.page()), (Places{{0, 387}, {0, 410}}));
    bench.send("\033%3\0\x09\033%5\0AB\n\033%3\0\x24\xB4\xE6\r"s);
    EXPECT_EQ(bench.last("text").at("xDots"), 2 * 18 + 36) << "a line feed leaves the head where it is";
    EXPECT_EQ(bench.last("text").at("yDots"), 387 + 30);
}

TEST(Bitmap, InkBesideThePaperIsKeptAndBeyondThePictureReported) {
    Bench bench({.pageWidthDots = 100, .pageHeightDots = 50});
    bench.send(columnAt(0, 0, "\x01\0\0"s) + columnAt(66, 60, "\0\0\0"s));
    EXPECT_EQ(bench.printer.page()->width(), 100) << "no ink, no growth";
    bench.send("\033/10000\rAB\r" + columnAt(80, 200, "\x01\0\0"s));
    const Page& page = *bench.printer.page();
    EXPECT_EQ(page.width(), 280);
    EXPECT_EQ(page.height(), 230);
    EXPECT_TRUE(page.dot(0, 0));
    EXPECT_TRUE(page.dot(120, 150));
    EXPECT_GT(inkIn(page, 0, 24).sum, 0) << "text is kept when the picture grows";
    EXPECT_FALSE(page.dot(-1, 0) || page.dot(0, -1) || page.dot(280, 0) || page.dot(0, 230));

    bench.send("\033|A999\0331A000"s + std::string(9, '\x11') + "\0332");
    EXPECT_EQ(bench.last("off-page").at("dots"), 12) << "two of three columns are out of reach";
    bench.send("\033|A999Z\r");
    EXPECT_EQ(bench.last("off-page").at("text"), "Z");
    for (int i = 0; i < 4000; ++i) {
        bench.send("\n");
    }
    bench.send("Q\r");
    EXPECT_EQ(bench.last("off-page").at("text"), "Q");
    EXPECT_LE(page.width(), kMaxPageWidthDots);
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
        {"\033a1", latin, 360, 24},
        {"\033a3", latin, 240, 24},
        {"\033a4", latin, 225, 24},
        {"\033a8", latin, 212, 24},
        {"\033a3", chinese, 240, 24},
        {"\033a3\033(", latin, 240, 24},
        {"\033a3\0334\x1Cj", latin, 480, 24},
        {"\033a3\0334\x1Cj", chinese, 240, 24},
        {"\033a3\0334\x1Ch", chinese, 480, 24},
        {"\033a3\0334\x1Ch\0333\x1Cj", latin + chinese, 480, 24},
        {"\033a3\033w1", latin, 240, 48},
        {"\033a3\033w2", chinese, 240, 72},
        {"\033a3\033w1\0330\033a3", latin, 240, 24},  // clear-all
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

TEST(Text, BoldIsDarkerAndUnderlineRunsThroughSpaces) {
    const auto darkness = [](const std::string& format) {
        Bench bench;
        bench.send(format + "ab 12\r");
        return inkIn(*bench.printer.page(), 0, 24).sum;
    };
    EXPECT_GT(darkness("\033("), darkness("") * 5 / 4);
    EXPECT_EQ(darkness("\033(\033)"), darkness(""));

    // Rows of ink below five cells of 18 dots, underlined, and one that no longer is.
    for (const auto& [on, rows] : {std::pair("\033*0", 1), {"\033*3", 2}, {"\033*4", 3}}) {
        Bench bench;
        bench.send("\033a1"s + on + "a   b\033+c\r");
        const Ink line = inkIn(*bench.printer.page(), 24, 28);
        EXPECT_EQ(line.sum, 255 * 90 * rows) << on;
        EXPECT_EQ(line.end, 90);
    }
}

TEST(Text, TheHeadMovesAlongAndDown) {
    Bench bench;
    bench.send("\033&46\033a3\033/10240\033|A040AB\xB4\xE6\103\033(D\r");
    nlohmann::json text = bench.last("text");
    EXPECT_EQ(text.at("text"), "D");
    EXPECT_EQ(text.at("xDots"), 60 + 5 * 12);
    EXPECT_EQ(text.at("xMm"), 16.93);
    EXPECT_EQ(text.at("yMm"), 25.4);
    bench.send("\n\n\x81\x36\xA5\x31\xA2\xE3\r");
    text = bench.last("text");
    EXPECT_EQ(text.at("xDots"), 0);
    EXPECT_EQ(text.at("yDots"), 180 + 69) << "twice 46/240 inch";
    EXPECT_TRUE(text.at("text").get<std::string>().ends_with("\u20AC"));
    bench.send("\033w9");
    EXPECT_EQ(bench.last("bad-value").at("value"), '9');
    bench.send("\033a\0"s);
    EXPECT_EQ(bench.last("bad-value").at("name"), "pitch");
}

// What a picture's reader gets: the dots where they are, paper and what lies beside it, the resolution.
TEST(Picture, ShowsThePage) {
    Bench bench({.pageWidthDots = 20, .pageHeightDots = 30});
    bench.send(columnAt(2, 4, "\x01\0\0"s) + columnAt(20, 4, "\x01\0\0"s));
    std::vector<std::uint8_t> file = bench.printer.page()->png();
    const std::string text(file.begin(), file.end());
    EXPECT_EQ(text.substr(37, 13), "pHYs\0\0\033\xAF\0\0\033\xAF\x01"s);

    const auto readOn = [](void* from, unsigned char* to, unsigned int length) {
        auto& rest = *static_cast<std::vector<std::uint8_t>*>(from);
        if (rest.size() < length) {
            return CAIRO_STATUS_READ_ERROR;
        }
        std::copy_n(rest.begin(), length, to);
        rest.erase(rest.begin(), rest.begin() + length);
        return CAIRO_STATUS_SUCCESS;
    };
    cairo_surface_t* picture = cairo_image_surface_create_from_png_stream(readOn, &file);
    ASSERT_EQ(cairo_surface_status(picture), CAIRO_STATUS_SUCCESS);
    ASSERT_EQ(cairo_image_surface_get_width(picture), 200);
    const auto grey = [picture](int x, int y) {
        return cairo_image_surface_get_data(picture)[y * cairo_image_surface_get_stride(picture) + x * 4];
    };
    EXPECT_EQ(grey(3, 3), 0);
    EXPECT_EQ(grey(4, 3), 255);
    EXPECT_EQ(grey(3, 2), 255);
    EXPECT_EQ(grey(30, 3), 0);
    EXPECT_TRUE(grey(31, 3) > 200 && grey(31, 3) < 255) << "not paper, and no ink";
    cairo_surface_destroy(picture);
}

}  // namespace
}  // namespace passbook::sim
