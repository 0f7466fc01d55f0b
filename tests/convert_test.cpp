#include "image/convert.h"

#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <filesystem>

#include "image/bmp.h"
#include "image/file.h"
#include "image/handles.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

class Conversion : public ::testing::Test {
 protected:
    TemporaryDirectory directory;
    const std::string source = directory.file("source"), bmp = directory.file("a.bmp"), jpg = directory.file("a.jpg");
    std::ptrdiff_t openBefore = 0;

    void SetUp() override {
        testing::internal::CaptureStderr();  // libpng tells what is wrong with each file
        openBefore = openFiles();
    }
    void TearDown() override {
        EXPECT_EQ(openFiles(), openBefore);
        (void)testing::internal::GetCapturedStderr();
    }
    static unsigned permissions(const std::string& path) {
        return static_cast<unsigned>(std::filesystem::symlink_status(path).permissions());
    }
    /// Converts a file of such content into one that is not there yet.
    int convertFresh(int (*convert)(const char*, const char*), const std::string& content) const {
        writeFile(source, content);
        (void)unlink(bmp.c_str());
        return convert(source.c_str(), bmp.c_str());
    }
};

/// Writes a picture of 3 x 2 pixels.
void writePng(const std::string& path, int colorType, int depth, bool transparent, bool interlaced, std::string raw) {
    const FileHandle file(std::fopen(path.c_str(), "wb"));
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    png_init_io(png, file.get());
    png_set_IHDR(png, info, 3, 2, depth, colorType, interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    const png_color palette[] = {{1, 2, 3}, {11, 12, 13}, {21, 22, 23}, {31, 32, 33}};
    if (colorType == PNG_COLOR_TYPE_PALETTE)
        png_set_PLTE(png, info, palette, 4);
    const png_byte alpha[] = {0, 100};
    const png_color_16 key = {0, 1, 1, 1, 1};
    if (transparent)
        png_set_tRNS(png, info, colorType == PNG_COLOR_TYPE_PALETTE ? alpha : nullptr, 2, &key);
    png_write_info(png, info);
    png_bytep rows[] = {reinterpret_cast<png_bytep>(raw.data()),
                        reinterpret_cast<png_bytep>(raw.data()) + raw.size() / 2};
    png_write_image(png, rows);
    png_write_end(png, info);
    png_destroy_write_struct(&png, &info);
}

TEST_F(Conversion, EveryKindOfPngGivesItsPixels) {
    const struct {
        int colorType, depth;
        bool transparent;
        const char *raw, *bmp;
    } rows[] = {
        {PNG_COLOR_TYPE_GRAY, 1, true, "A0 40", "FFFFFF000000FFFFFF000000 000000FFFFFF000000000000"},
        {PNG_COLOR_TYPE_GRAY, 2, false, "18 C4", "000000555555AAAAAA000000 FFFFFF000000555555000000"},
        {PNG_COLOR_TYPE_GRAY, 4, false, "0F70 80F0", "000000FFFFFF777777000000 888888000000FFFFFF000000"},
        {PNG_COLOR_TYPE_GRAY, 8, true, "0180FE 007FFF", "010101808080FEFEFE000000 0000007F7F7FFFFFFF000000"},
        {PNG_COLOR_TYPE_GRAY, 16, true, "010280FFFEFF 00FF7F7EFF00",
         "010101808080FEFEFE000000 0000007F7F7FFFFFFF000000"},
        {PNG_COLOR_TYPE_PALETTE, 2, true, "18 C4", "0302010D0C0B171615000000 21201F0302010D0C0B000000"},
        {PNG_COLOR_TYPE_PALETTE, 8, false, "000102 030001", "0302010D0C0B171615000000 21201F0302010D0C0B000000"},
        {PNG_COLOR_TYPE_RGB, 8, true, "010101040506070809 0A0B0C0D0E0F101112",
         "010101060504090807000000 0C0B0A0F0E0D121110000000"},
        {PNG_COLOR_TYPE_RGB, 16, false, "01F002F003F004F005F006F007F008F009F0 000000000000FFFFFFFFFFFF112233445566",
         "030201060504090807000000 000000FFFFFF553311000000"},
        {PNG_COLOR_TYPE_GRAY_ALPHA, 8, false, "01AA8000FE55 00107FFFFF00",
         "010101808080FEFEFE000000 0000007F7F7FFFFFFF000000"},
        {PNG_COLOR_TYPE_RGB_ALPHA, 8, false, "01020300040506FF07080980 0A0B0C010D0E0F0210111203",
         "030201060504090807000000 0C0B0A0F0E0D121110000000"},
    };
    const std::string header = BmpHeader{.width = 3, .height = -2, .imageSize = 24}.text();
    for (const auto& row : rows) {
        for (const bool interlaced : {false, true}) {
            SCOPED_TRACE(std::string(row.raw) + (interlaced ? ", interlaced" : ""));
            writePng(source, row.colorType, row.depth, row.transparent, interlaced, bytes(row.raw));
            const std::string whole = readFile(source);
            EXPECT_EQ(convertFresh(convertPNGtoBMP, whole), 0);
            EXPECT_EQ(std::pair(readFile(bmp), permissions(bmp)), std::pair(header + bytes(row.bmp), 0600U));
            for (std::size_t length = 8; length < whole.size() - 16; length += 8) {
                EXPECT_EQ(convertFresh(convertPNGtoBMP, whole.substr(0, length)), 0);
                EXPECT_LT(LoadedBmp(bmp).code, 0) << length;
            }
        }
    }
}

// The first row that is stored becomes the top of the JPEG, whatever the height's sign.
TEST_F(Conversion, JpegsComeAndGo) {
    const struct {
        int bits;
        std::string first, last;  // the pixels of the 8 rows that are stored first, and of the others
    } rows[] = {
        {8, "\x22", "\xFF"}, {24, "\x10\x60\xE0", "\xFF\xFF\xFF"}, {32, "\x10\x60\xE0\x80", "\xFF\xFF\xFF\xFF"}};
    for (const auto& row : rows) {
        std::string stored;
        for (int y = 0; y < 16; ++y) {
            for (int x = 0; x < 9; ++x)
                stored += y < 8 ? row.first : row.last;
            stored.append((4 - stored.size() % 4) % 4, '\0');
        }
        writeFile(bmp, BmpHeader{.width = 9, .height = 16, .bitsPerPixel = row.bits}.text() + stored);
        ASSERT_EQ(convertBMPtoJPG(bmp.c_str(), jpg.c_str(), 95), 0);
        ASSERT_EQ(convertJPGtoBMP(jpg.c_str(), bmp.c_str()), 0);
        const LoadedBmp loaded(bmp);
        ASSERT_EQ(std::tuple(loaded.bitmap.width, loaded.bitmap.storedHeight, loaded.bitmap.bitsPerPixel),
                  std::tuple(9, -16, std::min(row.bits, 24)));
        const std::string bottom = loaded.rows.substr(loaded.rows.size() * 15 / 16);
        for (std::size_t i = 0; i < row.first.size() && i < 3; ++i) {
            EXPECT_LT(std::abs(static_cast<signed char>(loaded.rows[i] - row.first[i])), 12);
            EXPECT_LT(std::abs(static_cast<signed char>(bottom[i] - row.last[i])), 12);
        }
    }
    const std::vector<int> all = {0, 1, 2, 3, 4, 5, 6, 7};
    Picture half = inkedPicture(16, 8, all, all);
    for (const int bits : {1, 4}) {  // rows behind a colour table
        writeFile(bmp, half.bmp(bits, true));
        ASSERT_EQ(convertBMPtoJPG(bmp.c_str(), jpg.c_str(), 95), 0);
        ASSERT_EQ(convertJPGtoBMP(jpg.c_str(), bmp.c_str()), 0);
        EXPECT_EQ(readFile(bmp).substr(54), std::string(half.grey.begin(), half.grey.end()));
    }
}

int encode(const char* from, const char* to) {
    return convertBMPtoJPG(from, to, 20);
}
template <int angle>
int turn(const char* from, const char* to) {
    return rorateImage(from, to, angle);
}

TEST_F(Conversion, DamagedAndHugeFilesAreRefused) {
    writeFile(bmp, inkedPicture(64, 64, {0, 20, 21, 40}, {3, 30, 31, 60}).bmp(24, true));
    ASSERT_EQ(convertBMPtoJPG(bmp.c_str(), jpg.c_str(), 90), 0);
    writePng(source, PNG_COLOR_TYPE_GRAY, 8, false, true, "abcdef");
    const std::string jpeg = readFile(jpg), interlaced = readFile(source), good = Picture(8, 8).bmp(8, true),
                      rows(64, 'x');
    // The frame of a JPEG: length, depth, height, width, and three components of three bytes.
    const std::size_t frame = jpeg.find("\xFF\xC0") + 2;
    const std::size_t scan = jpeg.find("\xFF\xDA") + 2;  // length, components, two bytes for each, three of its kind
    const auto framed = [&](const std::string& start) {
        return jpeg.substr(0, frame) + bytes(start) + jpeg.substr(frame + bytes(start).size());
    };
    const auto sized = [&](const std::string& size) {
        std::string png = interlaced;
        png.replace(16, 8, bytes(size));
        const auto crc = crc32(0, octets(png.data()) + 12, 17);
        for (std::size_t i = 0; i < 4; ++i)
            png[29 + i] = static_cast<char>(crc >> (24 - 8 * i));
        return png;
    };
    const struct {
        const char* name;
        int (*convert)(const char*, const char*);
        std::string file;
        int result;
        bool begun;  // a file was made
    } cases[] = {
        {"four components", convertJPGtoBMP, framed("00 14 08 00 40 00 40 04").insert(frame + 17, bytes("04 11 00")),
         -2, false},
        {"JPEG too high", convertJPGtoBMP, framed("00 11 08 80 00 00 10"), -2, false},
        {"JPEG too wide", convertJPGtoBMP, framed("00 11 08 00 10 80 00"), -2, false},
        {"a restart out of place", convertJPGtoBMP, std::string(jpeg).replace(jpeg.size() - 40, 2, "\xFF\xD5"), -2,
         true},
        {"a bad code", convertJPGtoBMP, std::string(jpeg).replace(jpeg.size() - 40, 20, 20, '\xFE'), -2, true},
        {"half a JPEG", convertJPGtoBMP, jpeg.substr(0, jpeg.size() / 2), -2, false},
        // What cameras, phones and scanners do, and viewers show.
        {"bytes behind the pixels", convertJPGtoBMP, std::string(jpeg).insert(jpeg.size() - 2, "left"), 0, true},
        {"bytes before the first marker", convertJPGtoBMP, jpeg.substr(0, 2) + "extra bytes" + jpeg.substr(2), 0, true},
        {"a scan told to be progressive", convertJPGtoBMP, std::string(jpeg).replace(scan + 10, 3, "\1\5\x10"), 0,
         true},
        {"a version to come", convertJPGtoBMP, std::string(jpeg).replace(11, 1, "\7"), 0, true},
        {"PNG too wide", convertPNGtoBMP, sized("00 00 80 00 00 00 00 01"), 0, false},
        {"PNG without width", convertPNGtoBMP, sized("00 00 00 00 00 00 00 01"), 0, false},
        {"BMP of two bytes", encode, "BM", -2, false},
        {"BMP without width", encode, BmpHeader{.width = 0}.text(), -2, false},
        {"BMP too wide", encode, BmpHeader{.width = 70000}.text(), -2, false},
        {"BMP without rows", encode, BmpHeader{.width = 8, .height = 2}.text(), -2, false},
        {"16 bits", encode, BmpHeader{.bitsPerPixel = 16}.text() + rows, -2, false},
        {"16 bits, turned", turn<90>, BmpHeader{.bitsPerPixel = 16}.text() + rows, -12, false},
        {"rows missing, turned", turn<90>, BmpHeader{.height = 9}.text(), -13, false},
        {"a quarter", turn<90>, good, 0, true},
        {"an eighth", turn<45>, good, -1, false},
        {"four quarters", turn<360>, good, -1, false},
    };
    for (const auto& each : cases) {
        EXPECT_EQ(convertFresh(each.convert, each.file), each.result) << each.name;
        EXPECT_EQ(std::filesystem::exists(bmp), each.begun) << each.name;
        EXPECT_TRUE(!each.begun || permissions(bmp) == 0600U) << each.name;
    }
    const std::string none = directory.file("none"), nowhere = directory.file("no/a.jpg");
    EXPECT_EQ(convertJPGtoBMP(none.c_str(), bmp.c_str()), -2);
    EXPECT_EQ(encode(bmp.c_str(), nowhere.c_str()), -2);
    EXPECT_EQ(encode(none.c_str(), jpg.c_str()), -2);
    EXPECT_EQ(readFile(jpg), "");
    const std::string messages = testing::internal::GetCapturedStderr();
    EXPECT_TRUE(messages.ends_with("can't open " + nowhere + ".\ncan`t open " + none + ".\n")) << messages;
    testing::internal::CaptureStderr();
    EXPECT_EQ(convertFresh(encode, BmpHeader{1, -65500, 8}.text() + std::string(4 * 65500, 'x')), 0);
}

// What is under a document's name is the document; a link stays one, and a pipe is none.
TEST_F(Conversion, ADocumentGoesWhereItsNameLeads) {
    const std::string linked = directory.file("linked"), pipe = directory.file("pipe"),
                      dangling = directory.file("dangling");
    Picture noise(200, 200);
    for (std::size_t i = 0; i < noise.grey.size(); ++i)
        noise.grey[i] = static_cast<std::uint8_t>(i * i >> 3);
    writeFile(source, noise.bmp(8, true));
    ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
    ASSERT_EQ(symlink(linked.c_str(), dangling.c_str()), 0);
    const auto jpegTo = [&](const std::string& path) { return encode(source.c_str(), path.c_str()); };
    const auto bmpTo = [&](const std::string& path) {
        return saveImageASBMP(200, 200, 8, 0, 2, noise.grey.data(), path.c_str());
    };
    for (const auto& [save, failed] :
         {std::pair<std::function<int(const std::string&)>, int>{jpegTo, -2}, {bmpTo, -3}}) {
        EXPECT_EQ((std::vector{save(pipe), save("/dev/full"), save("/dev/null")}), (std::vector{failed, failed, 0}));
        EXPECT_EQ((std::vector{save(jpg), save(dangling)}), (std::vector{0, 0}));
        EXPECT_TRUE(std::filesystem::is_symlink(dangling));
        EXPECT_TRUE(std::filesystem::remove(linked) && std::filesystem::remove(jpg));
    }
}

TEST_F(Conversion, AScannedPictureGetsItsName) {
    const mode_t mask = umask(0027);
    for (const char* name : {"scan.JPG", "scan.jpg.bmp"}) {
        const std::string path = directory.file(name);
        writeFile(source, Picture(8, 8).bmp(8, true));
        ASSERT_EQ(chmod(source.c_str(), 0600), 0);
        EXPECT_EQ(saveBitmapData(source.c_str(), path.c_str()), 0);
        EXPECT_EQ(saveBitmapData(source.c_str(), path.c_str()), 0);  // nothing to save: what is there stays
        EXPECT_FALSE(std::filesystem::exists(source));
        EXPECT_EQ(std::pair(readFile(path).substr(0, 2), permissions(path)),
                  std::pair(std::string(path.ends_with("bmp") ? "\xFF\xD8" : "BM"), 0640U));
    }
    (void)umask(mask);
}

TEST_F(Conversion, Base64) {
    const std::tuple<std::string, int, std::string> rows[] = {{"QUJDRE\nVGR0hJ\n\n\nSktM", 0, "ABCDEFGHIJKL"},
                                                              {"QQ==QUJD", 0, "AA"},
                                                              {"Q===QUJD", 0, "@A"},
                                                              {"QUJ\nQUJD", 0, "ABP"},
                                                              {"QU JD\r\n\n", 0, "ABC"},
                                                              {"+/+/", 0, "\xFB\xFF\xBF"},
                                                              {"QUI=", 0, "AB"},
                                                              {"QUJD\nQUJD", -2, ""},
                                                              {"QU\tD", -1, ""},
                                                              {"\xC1\xC2\xC3\xC4", -1, ""},
                                                              {"", -1, ""}};
    for (const auto& [text, result, decoded] : rows) {
        unsigned char out[16];
        int length = 0;
        EXPECT_EQ(base64_decode(octets(text.data()), static_cast<int>(text.size()), out, &length), result) << text;
        EXPECT_EQ(std::string(out, out + length), decoded) << text;
    }
    unsigned char out[4];
    int length = 7;
    EXPECT_EQ(base64_decode(nullptr, 4, out, &length) + base64_decode(octets("QUJD"), 4, nullptr, &length) +
                  base64_decode(octets("QUJD"), 4, out, nullptr),
              -3);
}

TEST_F(Conversion, TemporaryFilesAreTheUsersOwn) {
    char name[tempNameBytes], next[tempNameBytes];
    GetTempFileName(name, "/var/spool/scan.jpg");
    GetTempFileName(next, ".");
    EXPECT_TRUE(std::string(name).starts_with("/var/spool/.tmp_2"));
    EXPECT_TRUE(std::string(next).starts_with(".tmp_2"));
    EXPECT_EQ(std::stoi(std::string(next).substr(19)), std::stoi(std::string(name).substr(30)) + 1);
    GetTempFileName(name, (std::string(240, 'd') + "/a").c_str());
    EXPECT_STREQ(name, "");

    // A link of that name is taken away, not followed.
    writeFile(source, "precious");
    ASSERT_EQ(symlink(source.c_str(), bmp.c_str()), 0);
    EXPECT_EQ(saveFileData(bmp.c_str(), octets("secret"), 6), 0);
    EXPECT_EQ(std::tuple(readFile(source), readFile(bmp), permissions(bmp)), std::tuple("precious", "secret", 0600U));
    const unsigned char* const x = octets("x");
    EXPECT_EQ((std::vector{saveFileData(bmp.c_str(), nullptr, 1), saveFileData("", x, 1), saveFileData(nullptr, x, 1)}),
              (std::vector{-3, -2, -3}));
}

}  // namespace
}  // namespace passbook::tests
