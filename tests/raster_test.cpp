#include "print/raster.h"

#include <gtest/gtest.h>

#include <numeric>

#include "api/passbook.h"
#include "print/print_oli.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

TEST(Binarise, ThresholdsEachDepth) {
    const struct {
        int bits, width;
        std::string pixels, ink;  // one row
    } rows[] = {
        {8, 4, "C7 C8 00 FF", "1010"},
        {24, 3, "FF FF 5A 00 00 FF FF FF 59 00 00 00", "011"},
        {32, 3, "FF FF 5A 00 FF FF 59 FF 00 00 FF FF", "011"},
        {16, 2, "00 FF 00 FF", "10"},  // the byte at the pixel's index, not the pixel's own
    };
    for (const auto& row : rows) {
        std::string data = bytes(row.pixels);
        BinaryImage(row.width, 1, row.bits, reinterpret_cast<unsigned char*>(data.data()), 200);
        for (std::size_t x = 0; x < row.ink.size(); ++x) EXPECT_EQ((data[0] >> (7 - x)) & 1, row.ink[x] - '0') << row.bits << ", " << x;
    }
}

class OliPicture : public Pr2Port {
 protected:
    /// Prints a picture with ink in these columns of these rows. Returns what was sent, a run's data as "[columns]".
    std::string print(int width, int height, const std::vector<int>& rows, const std::vector<int>& columns, int x, int y) {
        writeFile(path, inkedPicture(width, height, rows, columns).bmp(8, false));
        port->writes.clear();
        result = PrintBmp_OLI(path.c_str(), false, x, y);
        std::string sent;
        bool inRun = false;
        for (const std::string& each : port->writes) {
            sent += inRun ? "[" + std::to_string(each.size() / 3) + "] " : each.substr(1) + " ";
            inRun = each == wire("^1A000");
        }
        return sent;
    }
    TemporaryDirectory directory;
    const std::string path = directory.file("a.bmp");
    int result = 1;
};

TEST_F(OliPicture, StripsAndRunsGoWhereTheyBelong) {
    std::vector<int> middle(47), edges(20);
    std::iota(middle.begin(), middle.end(), 7);
    std::iota(edges.begin(), edges.begin() + 10, 10);
    std::iota(edges.begin() + 10, edges.end(), 90);
    const struct {
        const char* name;
        int width, height;
        std::vector<int> rows, columns;
        int x, y, strips;
        std::string sent;
    } cases[] = {
        {"two strips, two runs", 100, 60, middle, edges, 50, 100, 2,
         "!G1 /10140 |A033 1A000 [20] 2 |A093 1A000 [10] 2 /10172 |A033 1A000 [20] 2 |A093 1A000 [10] 2 "},
        {"no ink", 40, 50, {}, {}, 5, 5, 0, "!G1 "},
        {"ink in the last partial byte only", 15, 30, {0, 29}, {14}, 5, 5, 0, "!G1 "},
        {"first ink in row 9, at the left edge", 8, 10, {9}, {0}, 0, 0, 1, "!G1 /10012 |A000 1A000 [1] 2 "},
        {"5 blank rows between strips", 8, 40, {0, 29}, {0}, 3, 0, 2, "!G1 /10000 |A002 1A000 [1] 2 /10036 |A002 1A000 [1] 2 "},
        {"60 blank columns are sent", 160, 3, {0}, {60, 121}, 0, 0, 1, "!G1 /10000 |A000 1A000 [122] 2 "},
        {"61 are not", 160, 3, {0}, {61, 123}, 3, 0, 1, "!G1 /10000 |A042 1A000 [1] 2 |A084 1A000 [1] 2 "},
        {"as far right as can be", 800, 3, {0}, {0}, 1499, 0, 1, "!G1 /10000 |A999 1A000 [1] 2 "},
        {"as far down as can be", 8, 30, {0}, {0}, 0, 7470, 1, "!G1 /19960 |A000 1A000 [1] 2 "},
    };
    for (const auto& each : cases) {
        virtualClock = {};
        EXPECT_EQ(print(each.width, each.height, each.rows, each.columns, each.x, each.y), each.sent) << each.name;
        EXPECT_EQ(result, 0);
        EXPECT_EQ(virtualClock.sleptSeconds, each.strips) << each.name;
    }
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
    failAllocation(2);  // the first one loads the picture
    EXPECT_EQ(print(160, 3, {0}, {0, 100}, 0, 0), "");
    EXPECT_EQ(result, -31);
}

TEST_F(OliPicture, AFileIsPrintedEjectedAndTheStatusAsked) {
    const std::string printed = "^!G1^/10188^|A046^1A000<01><00><00>^2", fiveQueries = "^j^j^j^j^j";
    const struct {
        bool eject;
        int y, failWrite, result;
        std::string file, sent;
        std::deque<std::string> replies = {};
    } rows[] = {
        {false, 20, 0, 0, "a.bmp", printed + fiveQueries},
        {true, 20, 0, 0, "a.bmp", printed + "^O^j^j", {"", wire("^rU"), "", wire("^ra")}},
        // The eject takes place whatever became of the picture, but not without one; the status is asked in any case.
        {true, 20, 5, -3, "a.bmp", printed.substr(0, printed.size() - 2) + "^O" + fiveQueries},
        {true, 1060, 0, -1, "a.bmp", "^O" + fiveQueries},
        {true, 20, 0, -11, "none.bmp", fiveQueries},
    };
    for (const auto& row : rows) {
        writeFile(path, inkedPicture(8, 1, {0}, {0}).bmp(24, true));
        port->writes.clear();
        port->failWrite = row.failWrite;
        port->replies = row.replies;
        EXPECT_EQ(YARDO_PrintBmpOLI(directory.file(row.file).c_str(), row.eject, 10, row.y), row.result);
        EXPECT_EQ(port->sent(), row.sent);
    }
}

}  // namespace
}  // namespace passbook::tests
