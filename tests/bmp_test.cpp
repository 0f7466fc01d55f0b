#include "image/bmp.h"

#include <gtest/gtest.h>

#include <climits>

#include "tests/support.h"

namespace passbook::tests {
namespace {

/// What the print engine would see of a file: 0 and its rows, or a code.
int load(const std::string& path, std::string* rows = nullptr) {
    int width = 0, height = 0, offset = 0, bits = 0;
    if (const int result = getBitmapInfo(path.c_str(), &width, &height, &offset, &bits); result != 0) return result;
    unsigned char* data = nullptr;
    int result = getBitmapData(path.c_str(), &data, width, height, bits, offset);
    EXPECT_EQ(data == nullptr, result != 0);
    if (result == 0) result = expandToGrey(path.c_str(), &data, width, std::abs(height), &bits, offset);
    if (result == 0 && rows != nullptr)
        rows->assign(reinterpret_cast<char*>(data),
                     static_cast<std::size_t>(bmpStrideBytes(width, bits)) * static_cast<std::size_t>(std::abs(height)));
    freeBitmapData(data);
    return result;
}

TEST(Bmp, HostileFilesGetTheirCode) {
    const std::string rows(64, 'x');
    const struct {
        const char* name;
        std::string file;
        int result;
    } cases[] = {
        {"good", BmpHeader{.width = 3, .height = 2}.text() + rows, 0},
        {"one byte short of a header", BmpHeader{}.text().substr(0, 53), -12},
        {"empty", "", -12},
        {"one byte short of its rows", BmpHeader{.width = 4, .height = -5}.text() + rows.substr(0, 59), -13},
        {"no rows at all", BmpHeader{.height = 0}.text(), 0},
        {"width 0", BmpHeader{.width = 0}.text() + rows, -13},
        {"negative width", BmpHeader{.width = -8}.text() + rows, -13},
        {"the height without a positive", BmpHeader{.height = INT_MIN}.text() + rows, -13},
        {"beyond 31 bits", BmpHeader{.width = 65536, .height = 65536, .bitsPerPixel = 32}.text() + rows, -13},
        {"beyond 64 bits", BmpHeader{.width = INT_MAX, .height = INT_MAX, .bitsPerPixel = 65535}.text() + rows, -13},
        {"a stride beyond 31 bits", BmpHeader{.width = INT_MAX, .height = 0, .bitsPerPixel = 32}.text(), -13},
        {"rows behind the end", BmpHeader{.height = 0, .dataOffset = 1000}.text() + rows, -13},
        {"rows before the start", BmpHeader{.dataOffset = -4}.text() + rows, -13},
        {"depth 0", BmpHeader{.bitsPerPixel = 0}.text() + rows, -12},
        {"depth 2", BmpHeader{.bitsPerPixel = 2}.text() + rows, -12},
        {"depth 7", BmpHeader{.bitsPerPixel = 7}.text() + rows, -12},
        {"depth 16", BmpHeader{.bitsPerPixel = 16}.text() + rows, 0},
        {"a colour table behind the end", BmpHeader{.bitsPerPixel = 1, .infoSize = 0xFFFFFFF0}.text() + rows, 0},
        {"more colours than there can be", BmpHeader{.bitsPerPixel = 4, .colorsUsed = 0xFFFFFFFF}.text() + rows, 0},
    };
    const TemporaryDirectory directory;
    const std::string path = directory.file("a.bmp");
    for (const auto& each : cases) {
        writeFile(path, each.file);
        EXPECT_EQ(load(path), each.result) << each.name;
    }
    EXPECT_EQ(load(directory.file("none.bmp")), -11);
    EXPECT_EQ(load(directory.file("")), -12);  // a directory

    writeFile(path, BmpHeader{.width = 3, .height = 2}.text() + rows);
    failAllocation(1);
    EXPECT_EQ(load(path), -31);
    writeFile(path, BmpHeader{.bitsPerPixel = 1}.text() + rows);
    failAllocation(2);
    EXPECT_EQ(load(path), -31);
}

TEST(Bmp, RowsComeTopFirstWithTheirFill) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("a.bmp");
    const std::string top = "aaabbbccc123", bottom = "dddeeefff456";
    std::string rows;
    writeFile(path, BmpHeader{.width = 3, .height = 2}.text() + bottom + top);
    EXPECT_EQ(load(path, &rows), 0);
    EXPECT_EQ(rows, top + bottom);
    // Behind a colour table that nobody asks for, and with more in the file than the rows.
    writeFile(path, BmpHeader{.width = 3, .height = -2, .dataOffset = 1078}.text() + std::string(1024, 'p') + top + bottom + "rest");
    EXPECT_EQ(load(path, &rows), 0);
    EXPECT_EQ(rows, top + bottom);
}

TEST(Bmp, FewBitsBecomeGreyByTheColourTable) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("a.bmp");
    const struct {
        const char* name;
        std::string file;
        std::string rows;  // hex
    } cases[] = {
        {"1 bit, white first", BmpHeader{3, 1, 1, 62}.text() + bytes("FFFFFF00 00000000 40000000"), "FF 00 FF 00"},
        {"1 bit, no table", BmpHeader{3, 1, 1, 54}.text() + bytes("40000000"), "00 FF 00 00"},
        {"1 bit, colours", BmpHeader{2, 1, 1, 62}.text() + bytes("0000FF00 FF00FF00 40000000"), "55 AA 00 00"},
        {"4 bits, no table", BmpHeader{3, 1, 4, 54}.text() + bytes("F1200000"), "FF 11 22 00"},
        {"4 bits, three colours", BmpHeader{4, 1, 4, 66, 3}.text() + bytes("01010100 02020200 03030300 01230000"), "01 02 03 00"},
        {"1 bit, a longer header", BmpHeader{2, 1, 1, 70, 0, 48}.text() + bytes("FFFFFFFF FFFFFFFF 09090900 05050500 40000000"),
         "09 05 00 00"},
    };
    for (const auto& each : cases) {
        std::string rows;
        writeFile(path, each.file);
        EXPECT_EQ(load(path, &rows), 0) << each.name;
        EXPECT_EQ(hex(rows), each.rows) << each.name;
    }
}

TEST(Bmp, FilesAreWrittenAsTheFormatSays) {
    const TemporaryDirectory directory;
    const std::string path = directory.file("a.bmp");
    const std::string pixels(24, 'p');
    const auto* data = reinterpret_cast<const unsigned char*>(pixels.data());
    const auto expectHeader = [&](int height, int bits, std::uint32_t imageSize) {
        std::string header = BmpHeader{3, height, bits}.text();
        for (std::size_t i = 0; i < 4; ++i) {
            header[2 + i] = static_cast<char>((54 + imageSize) >> (8 * i));
            header[34 + i] = static_cast<char>(imageSize >> (8 * i));
        }
        return hex(header);
    };
    EXPECT_EQ(saveImageASBMP(3, 2, 24, 1, 0, data, path.c_str()), 0);
    EXPECT_EQ(hex(readFile(path)), expectHeader(2, 24, 24) + " " + hex(pixels));
    // The colour mode changes the depth that the header tells, and no size.
    EXPECT_EQ(saveImageASBMP(3, 2, 8, 0, 12, data, path.c_str()), 0);
    EXPECT_EQ(hex(readFile(path)), expectHeader(-2, 24, 8) + " " + hex(pixels.substr(0, 8)));
    EXPECT_EQ(setBMPHeader(path.c_str(), 3, 2, 24), 0);
    EXPECT_EQ(hex(readFile(path)), expectHeader(-2, 24, 24));

    EXPECT_EQ(saveImageASBMP(3, 2, 24, 1, 0, data, nullptr), -2);
    EXPECT_EQ(setBMPHeader(nullptr, 3, 2, 24), -2);
    EXPECT_EQ(saveImageASBMP(3, 2, 24, 1, 0, data, directory.file("no/a.bmp").c_str()), -3);
    EXPECT_EQ(setBMPHeader(path.c_str(), 65536, 65536, 32), -3);
    EXPECT_EQ(setBMPHeader(path.c_str(), INT_MAX, -1, 24), -3);
}

TEST(Bmp, ColourTables) {
    tagRGBQUAD table[256];
    FormatColorPalette(table, 16, 0);
    EXPECT_EQ(table[15].rgbGreen, 255);
    EXPECT_EQ(table[1].rgbReserved, 0);
    table[3].rgbReserved = 9;
    FormatColorPalette(table, 256, 0);
    EXPECT_EQ(table[200].rgbBlue, 200);
    EXPECT_EQ(table[3].rgbReserved, 9);
    FormatColorPalette(table, 1, 0);
    EXPECT_EQ(table[0].rgbRed, 0);
    EXPECT_EQ(GetBMPheaderSize(1), 62);
    EXPECT_EQ(GetBMPheaderSize(8), 1078);
    EXPECT_EQ(GetBMPheaderSize(24), 1078);
}

}  // namespace
}  // namespace passbook::tests
