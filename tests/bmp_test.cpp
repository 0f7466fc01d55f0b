#include "image/bmp.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/support.h"

namespace passbook::tests {
namespace {

TEST(Bmp, FilesGiveTheirRowsTopFirstOrTheirCode) {
    const std::string rows(64, 'x'), top = "aaabbbccc123", bottom = "dddeeefff456", table(1024, 'p');
    const struct {
        const char* name;
        std::string file;
        int result;
        std::string rows = {};  // what they begin with
    } cases[] = {
        // Behind a colour table that nobody asks for, and with more in the file than the rows.
        {"top-down", BmpHeader{.width = 3, .height = -2, .dataOffset = 1078}.text() + table + top + bottom + "rest", 0,
         top + bottom},
        {"1 bit, white first", BmpHeader{3, 1, 1, 62}.text() + bytes("FFFFFF00 00000000 40000000"), 0,
         bytes("FF00FF00")},
        {"1 bit, no table", BmpHeader{3, 1, 1, 54}.text() + bytes("40000000"), 0, bytes("00FF0000")},
        {"1 bit, colours", BmpHeader{2, 1, 1, 62}.text() + bytes("0000FF00 FF00FF00 40000000"), 0, bytes("55AA0000")},
        {"1 bit, a longer header",
         BmpHeader{2, 1, 1, 70, 0, 48}.text() + bytes("FFFFFFFF FFFFFFFF 09090900 05050500 40000000"), 0,
         bytes("09050000")},
        {"4 bits, no table", BmpHeader{3, 1, 4, 54}.text() + bytes("F1200000"), 0, bytes("FF112200")},
        {"4 bits, three colours",
         BmpHeader{4, 1, 4, 70, 3}.text() + bytes("01010100 02020200 03030300 09090900 01230000"), 0,
         bytes("01020300")},
        {"4 bits, half a table", BmpHeader{4, 1, 4, 62}.text() + bytes("01010100 02020200 01230000"), 0,
         bytes("01020000")},
        {"one pixel", BmpHeader{.width = 1}.text() + "abc4", 0, "abc4"},
        {"rows at the start", BmpHeader{.width = 3, .height = -4, .dataOffset = 0}.text(), 0, "BM"},
        {"depth 16", BmpHeader{.bitsPerPixel = 16}.text() + rows, 0, "xxxxxxxxxxxxxxxx"},
        {"a colour table behind the end", BmpHeader{.bitsPerPixel = 1, .infoSize = 0xFFFFFFF0}.text() + rows, 0},
        {"more colours than there can be",
         BmpHeader{.bitsPerPixel = 4, .dataOffset = 1078, .colorsUsed = ~0U}.text() + table + rows, 0},
        {"no rows at all", BmpHeader{.height = 0}.text(), 0},
        {"one byte short of a header", BmpHeader{}.text().substr(0, 53), -12},
        {"one byte short of its rows", BmpHeader{.width = 4, .height = -5}.text() + rows.substr(0, 59), -13},
        {"width 0", BmpHeader{.width = 0}.text() + rows, -13},
        {"negative width", BmpHeader{.width = -8}.text() + rows, -13},
        {"the height without a positive", BmpHeader{.height = INT_MIN}.text() + rows, -13},
        {"beyond 31 bits", BmpHeader{.width = 65536, .height = 65536, .bitsPerPixel = 32}.text() + rows, -13},
        {"beyond 64 bits", BmpHeader{.width = INT_MAX, .height = INT_MAX, .bitsPerPixel = 65535}.text() + rows, -13},
        {"a stride beyond 31 bits", BmpHeader{.width = INT_MAX, .height = 0, .bitsPerPixel = 32}.text(), -13},
        {"rows behind the end", BmpHeader{.height = 0, .dataOffset = 1000}.text() + rows, -13},
        {"rows before the start", BmpHeader{.dataOffset = -4}.text() + rows, -13},
        {"depth 0", BmpHeader{.bitsPerPixel = 0}.text() + rows, -12},
        {"depth 7", BmpHeader{.bitsPerPixel = 7}.text() + rows, -12},
    };
    const TemporaryDirectory directory;
    const std::string path = directory.file("a.bmp");
    for (const auto& each : cases) {
        writeFile(path, each.file);
        const LoadedBmp loaded(path);
        EXPECT_EQ(std::pair(loaded.code, loaded.rows.substr(0, each.rows.size())), std::pair(each.result, each.rows))
            << each.name;
    }
    EXPECT_EQ(LoadedBmp(directory.file("none.bmp")).code, -11);
    EXPECT_EQ(LoadedBmp(directory.file("")).code, -12);  // a directory
}

TEST(Bmp, FilesAreWrittenAsTheFormatSays) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("a.bmp"), pixels(8, 'p');
    const auto save = [&](int width, int height, const char* to, int bits = 8, int mode = 12) {
        return saveImageASBMP(width, height, bits, 0, static_cast<char>(mode), octets(pixels.data()), to);
    };
    // The colour mode changes the depth that the header tells, and no size.
    EXPECT_EQ(save(3, 2, path.c_str()), 0);
    EXPECT_EQ(readFile(path), BmpHeader({.width = 3, .height = -2, .imageSize = 8}).text() + pixels);
    // 31 bits hold its rows, but not the file.
    EXPECT_EQ((std::vector{save(3, 2, nullptr), save(4, 0x1FFFFFFF, path.c_str()), save(8, -1, path.c_str())}),
              (std::vector{-2, -3, -3}));
    EXPECT_EQ((std::vector{save(8, 8, path.c_str(), 0), save(8, 8, path.c_str(), -1)}), (std::vector{0, -3}));
    std::string depths;
    EXPECT_EQ(GetBMPheaderSize(-1) + GetBMPheaderSize(0) + GetBMPheaderSize(23) + GetBMPheaderSize(24),
              4 * 54 + 4 * (256 + 1 + (1 << 23) + 256));
    for (int mode = 0; mode < 8 && save(3, 2, path.c_str(), 8, mode) == 0; ++mode)
        depths += std::to_string(readFile(path)[28]) + ' ';
    EXPECT_EQ(depths, "8 8 8 8 24 24 24 8 ");
}

}  // namespace
}  // namespace passbook::tests
