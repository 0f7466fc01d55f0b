#include "print/raster.h"

#include <gtest/gtest.h>

#include <numeric>

#include "api/passbook.h"
#include "image/bmp.h"
#include "print/print_oli.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

TEST(Binarise, ThresholdsEachDepth) {
    const struct {
        int bits;
        std::string pixels;  // one row
        int width;
        std::string ink;
    } rows[] = {
        {8, "C7 C8 00 FF", 4, "1010"},
        {24, "FF FF 5A 00 00 FF FF FF 59 00 00 00", 3, "011"},
        {32, "FF FF 5A 00 FF FF 59 FF 00 00 FF FF", 3, "011"},
        {16, "00 FF 00 FF", 2, "10"},  // the byte at the pixel's index, not the pixel's own
    };
    for (const auto& row : rows) {
        std::string data = bytes(row.pixels);
        BinaryImage(row.width, 1, row.bits, reinterpret_cast<unsigned char*>(data.data()), 200);
        for (int x = 0; x < row.width; ++x)
            EXPECT_EQ((data[0] >> (7 - x)) & 1, row.ink[static_cast<std::size_t>(x)] - '0')
                << row.bits << ", pixel " << x;
    }
}

// Against the rule written pixel by pixel, into a buffer of its own: the real one is rewritten in place.
TEST(Binarise, InPlaceLosesNothing) {
    std::uint32_t seed = 1;
    for (const int bits : {8, 24, 32}) {
        for (int width = 1; width < 40; ++width) {
            constexpr int height = 5;
            const auto stride = static_cast<std::size_t>(bmpStrideBytes(width, bits));
            std::vector<unsigned char> data(stride * height);
            for (auto& byte : data)
                byte = static_cast<unsigned char>((seed = seed * 1664525 + 1013904223) >> 24);
            const auto original = data;
            BinaryImage(width, height, bits, data.data(), 200);
            for (std::size_t y = 0; y < height; ++y) {
                for (std::size_t x = 0; x < static_cast<std::size_t>(width); ++x) {
                    const unsigned char* pixel =
                        &original[y * stride + x * static_cast<std::size_t>(bits / 8)];
                    const int grey = bits == 8 ? pixel[0] : (pixel[0] + pixel[1] + pixel[2]) / 3;
                    const int bit = data[y * oneBitStrideBytes(width) + x / 8] >> (7 - x % 8) & 1;
                    ASSERT_EQ(bit, grey < 200 ? 1 : 0) << bits << " bits, " << x << "," << y;
                }
            }
        }
    }
}

TEST(Strips, BlankRowsAreJudgedByWholeBytes) {
    const struct {
        int width;
        const char* row;
        int blank;
    } rows[] = {{7, "FE", 1},
                {8, "01", 0},
                {15, "00 FE", 1},
                {16, "00 01", 0},
                {24, "00 00 00", 1},
                {24, "01 01 01", 0},
                {80, "00000000000000000080", 0}};
    for (const auto& row : rows) {
        const std::string data = bytes(row.row);
        EXPECT_EQ(isBlankRow(row.width, reinterpret_cast<const unsigned char*>(data.data())), row.blank)
            << row.row;
    }
}

TEST(Strips, ColumnsArePackedPerFamily) {
    const struct {
        std::vector<int> inkedRows;
        int rowsLeft;
        const char *oki, *oli;
    } rows[] = {
        {{0, 1, 9, 23}, 24, "C0 40 01", "03 02 80"},
        {{0, 1, 2, 3, 4, 5, 6, 7}, 24, "FF 00 00", "FF 00 00"},
        {{0, 1, 3, 4}, 24, "D8 00 00", "1A 00 00"},
        {{3, 4, 6, 7}, 24, "1B 00 00", "D8 00 00"},
        {{16, 17, 19, 20}, 24, "00 00 D8", "00 00 1A"},
        {{0, 9, 10, 23}, 10, "80 40 00", "01 02 00"},  // the rest lies below the picture
    };
    for (const auto& row : rows) {
        for (const int width : {1, 8, 13}) {
            const std::size_t stride = oneBitStrideBytes(width);
            std::vector<unsigned char> image(stride * 24), columns(static_cast<std::size_t>(width) * 3, 0xEE);
            for (const int inked : row.inkedRows)  // in the last column only
                image[static_cast<std::size_t>(inked) * stride + static_cast<std::size_t>(width - 1) / 8] =
                    static_cast<unsigned char>(0x80 >> ((width - 1) % 8));
            const auto packed = [&] { return hex(std::string(columns.begin(), columns.end())); };
            std::string blank;
            for (int i = 1; i < width; ++i)
                blank += "00 00 00 ";
            AdjustDataOrder(width, row.rowsLeft, image.data(), columns.data());
            EXPECT_EQ(packed(), blank + row.oki);
            AdjustDataOrder_OLI(width, row.rowsLeft, image.data(), columns.data());
            EXPECT_EQ(packed(), blank + row.oli);
        }
    }
}

class OliPicture : public Pr2Port {
 protected:
    /// Prints a picture in which the given columns are ink in the given rows; returns what was sent, with a
    /// run's data as "[columns]".
    std::string print(int width, int height, const std::vector<int>& rows, const std::vector<int>& columns,
                      int x, int y) {
        Picture picture(width, height);
        for (const int row : rows) {
            for (const int column : columns)
                picture.at(column, row) = 0;
        }
        std::string content = picture.bmp(8, false).substr(54);
        std::vector<unsigned char> data(content.begin(), content.end());
        std::vector<unsigned char> topDown;
        const auto stride = static_cast<std::size_t>(bmpStrideBytes(width, 8));
        for (std::size_t row = static_cast<std::size_t>(height); row-- > 0;)
            topDown.insert(topDown.end(), &data[row * stride], &data[row * stride] + stride);
        BinaryImage(width, height, 8, topDown.data(), 200);
        port->writes.clear();
        result = SendBMPData_OLI(width, height, topDown.data(), x, y);
        std::string sent;
        bool inRun = false;
        for (const std::string& each : port->writes) {
            sent += inRun ? "[" + std::to_string(each.size() / 3) + "] " : each.substr(1) + " ";
            inRun = each ==
                    "\x1B"
                    "1A000";
        }
        return sent;
    }
    static std::vector<int> range(int from, int to) {
        std::vector<int> all(static_cast<std::size_t>(to - from + 1));
        std::iota(all.begin(), all.end(), from);
        return all;
    }
    int result = 1;
};

TEST_F(OliPicture, StripsAndRunsGoWhereTheyBelong) {
    auto edges = range(10, 19);
    for (const int column : range(90, 99))
        edges.push_back(column);
    const struct {
        const char* name;
        int width, height;
        std::vector<int> rows, columns;
        int x, y;
        std::string sent;
        int strips;
    } cases[] = {
        {"two strips, two runs", 100, 60, range(7, 53), edges, 50, 100,
         "!G1 /10140 |A033 1A000 [20] 2 |A093 1A000 [10] 2 /10172 |A033 1A000 [20] 2 |A093 1A000 [10] 2 ", 2},
        {"no ink", 40, 50, {}, {}, 5, 5, "!G1 ", 0},
        {"ink in the last partial byte only", 15, 30, range(0, 29), {14}, 5, 5, "!G1 ", 0},
        {"first ink in row 9, at the left edge", 8, 10, {9}, {0}, 0, 0, "!G1 /10012 |A000 1A000 [1] 2 ", 1},
        {"5 blank rows between strips",
         8,
         40,
         {0, 29},
         {0},
         3,
         0,
         "!G1 /10000 |A002 1A000 [1] 2 /10036 |A002 1A000 [1] 2 ",
         2},
        {"60 blank columns are sent", 160, 3, {0}, {60, 121}, 0, 0, "!G1 /10000 |A000 1A000 [122] 2 ", 1},
        {"61 are not", 160, 3, {0}, {61, 123}, 3, 0, "!G1 /10000 |A042 1A000 [1] 2 |A084 1A000 [1] 2 ", 1},
        {"as far right as can be", 800, 3, {0}, {0}, 1499, 0, "!G1 /10000 |A999 1A000 [1] 2 ", 1},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.name);
        virtualClock = {};
        EXPECT_EQ(print(each.width, each.height, each.rows, each.columns, each.x, each.y), each.sent);
        EXPECT_EQ(result, 0);
        EXPECT_EQ(virtualClock.sleptSeconds, each.strips);
    }
}

TEST_F(OliPicture, NothingIsPrintedInAWrongPlace) {
    EXPECT_EQ(print(8, 30, {0}, {0}, 0, 7470), "!G1 /19960 |A000 1A000 [1] 2 ");
    EXPECT_EQ(result, 0);
    for (const auto& [x, y] : {std::pair{-1, 0}, {1500, 0}, {0, -1}, {0, 7500}, {0, 7473}}) {
        EXPECT_EQ(print(8, 30, {0}, {0}, x, y), "");
        EXPECT_EQ(result, -1);
    }
    // A run that would begin too far right ends the picture.
    EXPECT_EQ(print(800, 3, {0}, {0, 700}, 1000, 0), "!G1 /10000 |A666 1A000 [1] 2 ");
    EXPECT_EQ(result, -1);
}

TEST_F(OliPicture, AFailedRunEndsThePicture) {
    // !G1, y, x, head, data, end, move, head, data, end: only data counts.
    for (int n = 1; n <= 10; ++n) {
        port->failWrite = n;
        (void)print(160, 3, {0}, {0, 100}, 0, 0);
        EXPECT_EQ(result, n == 5 || n == 9 ? -3 : 0) << n;
        EXPECT_EQ(port->writes.size(), n == 5 || n == 9 ? static_cast<std::size_t>(n) : 10U);
    }
    port->failWrite = 0;
    failAllocation(1);
    EXPECT_EQ(print(160, 3, {0}, {0, 100}, 0, 0), "");
    EXPECT_EQ(result, -31);
}

TEST_F(OliPicture, AFileIsPrintedEjectedAndTheStatusAsked) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("a.bmp");
    Picture picture(8, 1);
    picture.at(0, 0) = 0;
    writeFile(path, picture.bmp(24, true));
    const std::string printed = "^!G1^/10188^|A046^1A000<01><00><00>^2", fiveQueries = "^j^j^j^j^j";

    EXPECT_EQ(YARDO_PrintBmpOLI(path.c_str(), false, 10, 20), 0);
    EXPECT_EQ(port->sent(), printed + fiveQueries);
    port->writes.clear();
    port->replies = {"", wire("^rU"), "", wire("^ra")};
    EXPECT_EQ(YARDO_PrintBmpOLI(path.c_str(), true, 10, 20), 0);
    EXPECT_EQ(port->sent(), printed + "^O^j^j");
    // The eject takes place whatever became of the picture, but not without one; the status is asked in any
    // case.
    port->writes.clear();
    port->failWrite = 5;
    EXPECT_EQ(YARDO_PrintBmpOLI(path.c_str(), true, 10, 20), -3);
    EXPECT_EQ(port->sent(), printed.substr(0, printed.size() - 2) + "^O" + fiveQueries);
    port->writes.clear();
    EXPECT_EQ(YARDO_PrintBmpOLI(path.c_str(), true, 10, 1060), -1);
    EXPECT_EQ(port->sent(), "^O" + fiveQueries);
    port->writes.clear();
    EXPECT_EQ(YARDO_PrintBmpOLI((path + "x").c_str(), true, 10, 20), -11);
    EXPECT_EQ(port->sent(), fiveQueries);
}

}  // namespace
}  // namespace passbook::tests
