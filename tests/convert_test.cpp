#include "image/convert.h"

#include <gtest/gtest.h>
#include <png.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include <cstdio>
#include <filesystem>
#include <random>
// libjpeg's header wants stdio.h before it.
#include <jpeglib.h>

#include "image/bmp.h"
#include "image/file.h"
#include "image/handles.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

/// A BMP's rows as the print engine would get them, or nothing, with its code and geometry.
struct Loaded {
    int code = 0, width = 0, height = 0, bits = 0;
    std::string rows;

    explicit Loaded(const std::string& path) {
        int offset = 0;
        unsigned char* data = nullptr;
        code = getBitmapInfo(path.c_str(), &width, &height, &offset, &bits);
        if (code == 0) code = getBitmapData(path.c_str(), &data, width, height, bits, offset);
        if (code == 0)
            rows.assign(reinterpret_cast<char*>(data),
                        static_cast<std::size_t>(bmpStrideBytes(width, bits)) * static_cast<std::size_t>(std::abs(height)));
        freeBitmapData(data);
    }
    [[nodiscard]] std::string pixel(int x, int y) const {
        const auto bytes = static_cast<std::size_t>(bits / 8);
        return rows.substr(
            static_cast<std::size_t>(y) * static_cast<std::size_t>(bmpStrideBytes(width, bits)) + static_cast<std::size_t>(x) * bytes,
            bytes);
    }
};

class Conversion : public ::testing::Test {
 protected:
    TemporaryDirectory directory;
    std::string source = directory.file("source"), bmp = directory.file("a.bmp"), jpg = directory.file("a.jpg");
};

std::string random(std::size_t length, unsigned seed) {
    std::mt19937 engine(seed);
    std::string result(length, '\0');
    for (char& byte : result) byte = static_cast<char>(engine());
    return result;
}

/// One kind of PNG: `rows` are its raw rows; `pixel` is what a reader must see.
struct PngKind {
    int colorType, depth;
    bool transparent, interlaced;
    static constexpr int width = 13, height = 11;

    [[nodiscard]] int samples() const {
        return colorType == PNG_COLOR_TYPE_RGB          ? 3
               : colorType == PNG_COLOR_TYPE_RGB_ALPHA  ? 4
               : colorType == PNG_COLOR_TYPE_GRAY_ALPHA ? 2
                                                        : 1;
    }
    [[nodiscard]] std::size_t rowBytes() const { return static_cast<std::size_t>((width * samples() * depth + 7) / 8); }
    [[nodiscard]] std::string rows() const { return random(rowBytes() * height, 5); }
    static png_color color(int index) {
        return {static_cast<png_byte>(index * 7), static_cast<png_byte>(255 - index), static_cast<png_byte>(index * 31)};
    }

    /// Blue, green, red.
    [[nodiscard]] std::string pixel(const std::string& raw, int x, int y) const {
        const auto sample = [&](int i) {
            const auto bit = static_cast<std::size_t>((x * samples() + i) * depth);
            const auto byte = static_cast<unsigned char>(raw[static_cast<std::size_t>(y) * rowBytes() + bit / 8]);
            return depth >= 8 ? byte : (byte >> (8 - depth - static_cast<int>(bit % 8))) & ((1 << depth) - 1);
        };
        if (colorType == PNG_COLOR_TYPE_PALETTE) {
            const png_color c = color(sample(0));
            return {static_cast<char>(c.blue), static_cast<char>(c.green), static_cast<char>(c.red)};
        }
        if (samples() <= 2) return std::string(3, static_cast<char>(depth < 8 ? sample(0) * 255 / ((1 << depth) - 1) : sample(0)));
        return {static_cast<char>(sample(2)), static_cast<char>(sample(1)), static_cast<char>(sample(0))};
    }

    void write(const std::string& path, std::string raw) const {
        const FileHandle file(std::fopen(path.c_str(), "wb"));
        png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
        png_infop info = png_create_info_struct(png);
        png_init_io(png, file.get());
        png_set_IHDR(png, info, width, height, depth, colorType, interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE,
                     PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
        std::vector<png_color> palette;
        for (int i = 0; i < 1 << std::min(depth, 8); ++i) palette.push_back(color(i));
        if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_PLTE(png, info, palette.data(), static_cast<int>(palette.size()));
        const png_byte alpha[] = {0, 100};
        const png_color_16 key = {0, 1, 1, 1, 1};
        if (transparent) png_set_tRNS(png, info, colorType == PNG_COLOR_TYPE_PALETTE ? alpha : nullptr, 2, &key);
        png_write_info(png, info);
        std::vector<png_bytep> pointers;
        for (std::size_t y = 0; y < height; ++y) pointers.push_back(reinterpret_cast<png_bytep>(raw.data()) + y * rowBytes());
        png_write_image(png, pointers.data());
        png_write_end(png, info);
        png_destroy_write_struct(&png, &info);
    }
};

TEST_F(Conversion, EveryKindOfPngGivesItsPixels) {
    const struct {
        int colorType;
        std::vector<int> depths;
        bool canBeTransparent;
    } families[] = {{PNG_COLOR_TYPE_GRAY, {1, 2, 4, 8, 16}, true},
                    {PNG_COLOR_TYPE_PALETTE, {1, 2, 4, 8}, true},
                    {PNG_COLOR_TYPE_RGB, {8, 16}, true},
                    {PNG_COLOR_TYPE_GRAY_ALPHA, {8, 16}, false},
                    {PNG_COLOR_TYPE_RGB_ALPHA, {8, 16}, false}};
    for (const auto& family : families) {
        for (const int depth : family.depths) {
            for (const int variant : {0, 1, 2, 3}) {
                const PngKind kind{family.colorType, depth, (variant & 1) != 0, (variant & 2) != 0};
                if (kind.transparent && !family.canBeTransparent) continue;
                SCOPED_TRACE(std::to_string(family.colorType) + ", depth " + std::to_string(depth) + ", variant " +
                             std::to_string(variant));
                const std::string raw = kind.rows();
                kind.write(source, raw);
                EXPECT_EQ(convertPNGtoBMP(source.c_str(), bmp.c_str()), 0);
                const Loaded loaded(bmp);
                ASSERT_EQ(loaded.code, 0);
                EXPECT_EQ(loaded.bits, 24);
                EXPECT_EQ(loaded.height, -PngKind::height);
                for (int y = 0; y < PngKind::height; ++y) {
                    for (int x = 0; x < PngKind::width; ++x)
                        ASSERT_EQ(hex(loaded.pixel(x, y)), hex(kind.pixel(raw, x, y))) << x << "," << y;
                }
                EXPECT_EQ(loaded.rows[39], '\0');  // the fill byte behind 13 pixels

                const std::string whole = readFile(source);
                testing::internal::CaptureStderr();  // libpng tells what is wrong with each
                for (std::size_t length = 8; length < whole.size() - 16; length += 8) {
                    writeFile(source, whole.substr(0, length));
                    (void)unlink(bmp.c_str());
                    EXPECT_EQ(convertPNGtoBMP(source.c_str(), bmp.c_str()), 0);
                    EXPECT_LT(Loaded(bmp).code, 0) << length;
                }
                (void)testing::internal::GetCapturedStderr();
            }
        }
    }
}

/// A JPEG of four components, as printing shops have them.
void writeCmyk(const std::string& path) {
    const FileHandle file(std::fopen(path.c_str(), "wb"));
    jpeg_compress_struct codec{};
    jpeg_error_mgr errors{};
    codec.err = jpeg_std_error(&errors);
    jpeg_create_compress(&codec);
    jpeg_stdio_dest(&codec, file.get());
    codec.image_width = codec.image_height = 1;
    codec.input_components = 4;
    codec.in_color_space = JCS_CMYK;
    jpeg_set_defaults(&codec);
    jpeg_start_compress(&codec, TRUE);
    JSAMPLE pixel[] = {1, 2, 3, 4};
    JSAMPROW row = pixel;
    (void)jpeg_write_scanlines(&codec, &row, 1);
    jpeg_finish_compress(&codec);
    jpeg_destroy_compress(&codec);
}

TEST_F(Conversion, JpegsComeAndGo) {
    for (const int width : {100, 101}) {
        for (const int bits : {1, 4, 8, 24, 32}) {
            Picture picture(width, 40);
            for (int y = 0; y < picture.height; ++y) {
                for (int x = 0; x < width; ++x)  // blocks of 8 are what a JPEG keeps
                    picture.at(x, y) = x / 8 % 2 == y / 8 % 2 ? 255 : 34;
            }
            for (const bool topDown : {true, false}) {
                writeFile(bmp, picture.bmp(bits, topDown));
                ASSERT_EQ(convertBMPtoJPG(bmp.c_str(), jpg.c_str(), 95), 0) << bits;
                ASSERT_EQ(convertJPGtoBMP(jpg.c_str(), bmp.c_str()), 0) << bits;
                const Loaded loaded(bmp);
                EXPECT_EQ(loaded.bits, bits >= 24 ? 24 : 8);
                EXPECT_EQ(loaded.height, -40);
                for (int y = 0; y < 40; ++y) {
                    const int asStored = topDown ? y : 39 - y;
                    const int want = bits == 1 && picture.at(9, asStored) < 200 ? 0 : picture.at(9, asStored);
                    const int got = static_cast<unsigned char>(loaded.pixel(9, y)[0]);
                    ASSERT_LT(std::abs(got - want), 12) << bits << " bits, row " << y;
                }
            }
        }
    }
    const std::string whole = readFile(jpg);
    for (std::size_t length = 2; length < whole.size() - 8; length += 8) {
        writeFile(jpg, whole.substr(0, length));
        (void)unlink(bmp.c_str());
        EXPECT_EQ(convertJPGtoBMP(jpg.c_str(), bmp.c_str()), -2) << length;
        EXPECT_LT(Loaded(bmp).code, 0) << length;
    }
    std::string damaged = whole;
    damaged.replace(damaged.size() - 40, 2, "\xFF\xD5");  // a restart marker where none belongs
    writeFile(jpg, damaged);
    EXPECT_EQ(convertJPGtoBMP(jpg.c_str(), bmp.c_str()), -2);
    writeFile(jpg, whole.substr(0, 2) + "extra bytes" + whole.substr(2));
    EXPECT_EQ(convertJPGtoBMP(jpg.c_str(), bmp.c_str()), 0);
    writeCmyk(jpg);
    EXPECT_EQ(convertJPGtoBMP(jpg.c_str(), bmp.c_str()), -2);
    EXPECT_EQ(convertJPGtoBMP(directory.file("none").c_str(), bmp.c_str()), -2);
}

TEST_F(Conversion, JpegsAreRefusedWithAMessage) {
    const auto convert = [&](const std::string& from, const std::string& to) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(convertBMPtoJPG(from.c_str(), to.c_str(), 20), -2);
        return testing::internal::GetCapturedStderr();
    };
    const std::string none = directory.file("none"), nowhere = directory.file("no/a.jpg");
    EXPECT_EQ(convert(bmp, nowhere), "can't open " + nowhere + ".\n");
    EXPECT_EQ(convert(none, jpg), "can`t open " + none + ".\n");
    EXPECT_EQ(std::filesystem::file_size(jpg), 0U);
    for (const std::string& file : {std::string("BM"), BmpHeader{.width = 0}.text(), BmpHeader{.height = 0}.text(),
                                    BmpHeader{.width = 70000}.text(), BmpHeader{.width = 8, .height = 2}.text()}) {
        writeFile(bmp, file);
        EXPECT_EQ(convert(bmp, jpg), "");
    }
    (void)unlink(jpg.c_str());
    writeFile(bmp, BmpHeader{.bitsPerPixel = 16}.text() + std::string(64, 'x'));
    EXPECT_EQ(convert(bmp, jpg), "");
    EXPECT_FALSE(std::filesystem::exists(jpg));
}

TEST_F(Conversion, HugePicturesAreRefusedBeforeTheyTakeMemory) {
    const PngKind kind{PNG_COLOR_TYPE_GRAY, 8, false, true};
    kind.write(source, kind.rows());
    std::string png = readFile(source);
    for (const char* size : {"00 00 80 00 00 00 00 01", "00 00 7F FF 00 00 7F FF", "00 00 00 00 00 00 00 01"}) {
        png.replace(16, 8, bytes(size));
        const auto crc = crc32(0, reinterpret_cast<const Bytef*>(png.data()) + 12, 17);
        for (std::size_t i = 0; i < 4; ++i) png[29 + i] = static_cast<char>(crc >> (24 - 8 * i));
        writeFile(source, png);
        testing::internal::CaptureStderr();
        EXPECT_EQ(convertPNGtoBMP(source.c_str(), bmp.c_str()), 0);
        (void)testing::internal::GetCapturedStderr();
        EXPECT_EQ(Loaded(bmp).code, -11);
    }
    writeFile(bmp, Picture(16, 16).bmp(24, true));
    ASSERT_EQ(convertBMPtoJPG(bmp.c_str(), jpg.c_str(), 90), 0);
    std::string jpeg = readFile(jpg);
    const std::size_t frame = jpeg.find("\xFF\xC0");
    writeFile(jpg, jpeg.replace(frame + 5, 4, bytes("7F FF 7F FF")));
    (void)unlink(bmp.c_str());
    EXPECT_EQ(convertJPGtoBMP(jpg.c_str(), bmp.c_str()), -2);
    EXPECT_EQ(Loaded(bmp).code, -11);
}

TEST_F(Conversion, FormatsAreRecognisedByTheirFirstBytes) {
    const struct {
        std::string file;
        int format;
    } rows[] = {
        {"BM", 0}, {"B", -1}, {"\xFF\xD8", 1}, {"", -1}, {"\x89PNG\r\n\x1A\n", 2}, {"\x89PNG\r\n\x1B\n", -1}, {"\x89PNG\r\n\x1A", -1}};
    for (const auto& row : rows) {
        IMAGE_FORMAT format = formatPng;
        writeFile(source, row.file);
        EXPECT_EQ(identifyFileFormat(source.c_str(), &format), 0);
        EXPECT_EQ(format, row.format) << hex(row.file);
    }
    IMAGE_FORMAT untouched = formatPng;
    EXPECT_EQ(identifyFileFormat(directory.file("none").c_str(), &untouched), -2);
    EXPECT_EQ(untouched, formatPng);
}

TEST_F(Conversion, AScannedPictureGetsItsName) {
    const std::string final = directory.file("scan.bmp"), upper = directory.file("scan.JPG"), middle = directory.file("scan.jpg.bmp");
    for (const std::string& name : {final, upper, middle}) {
        writeFile(bmp, Picture(8, 8).bmp(8, true));
        EXPECT_EQ(makeTempFile(source.c_str()), 0);
        std::filesystem::rename(bmp, source);
        EXPECT_EQ(saveBitmapData(source.c_str(), name.c_str()), 0);
        EXPECT_FALSE(std::filesystem::exists(source));
        IMAGE_FORMAT format = notRecognised;
        EXPECT_EQ(identifyFileFormat(name.c_str(), &format), 0);
        EXPECT_EQ(format, name == middle ? formatJpeg : formatBmp);
    }
    const std::string before = readFile(middle);
    EXPECT_EQ(saveBitmapData(source.c_str(), middle.c_str()), 0);
    EXPECT_EQ(readFile(middle), before);
}

TEST_F(Conversion, TurnsGoClockwise) {
    Picture picture(3, 2);
    for (int i = 0; i < 6; ++i) picture.grey[static_cast<std::size_t>(i)] = static_cast<std::uint8_t>(17 * i);
    const struct {
        int angle;
        std::string pixels;  // the top left one is 0
    } rows[] = {{90, "30,41,52"}, {180, "543,210"}, {270, "25,14,03"}};
    for (const int bits : {4, 8, 24, 32}) {
        for (const auto& row : rows) {
            writeFile(source, picture.bmp(bits, bits == 8));
            ASSERT_EQ(rorateImage(source.c_str(), bmp.c_str(), row.angle), 0);
            const Loaded turned(bmp);
            EXPECT_EQ(turned.bits, bits == 4 ? 8 : bits);
            std::string pixels;
            for (int y = 0; y < -turned.height; ++y) {
                pixels += y > 0 ? "," : "";
                for (int x = 0; x < turned.width; ++x)
                    pixels += static_cast<char>('0' + static_cast<unsigned char>(turned.pixel(x, y)[0]) / 17);
                if (turned.width * bits % 32 != 0 && bits == 24) {
                    EXPECT_EQ(turned.pixel(turned.width, y)[0], '\xFF');
                }
            }
            EXPECT_EQ(pixels, row.pixels) << bits << " bits, " << row.angle;
        }
    }
    // Larger than a tile, four times a quarter: the same again.
    const std::string large = BmpHeader{150, -201, 24}.text() + random(452 * 201, 9);
    writeFile(source, large);
    for (int i = 0; i < 4; ++i) ASSERT_EQ(rorateImage(i == 0 ? source.c_str() : bmp.c_str(), bmp.c_str(), 90), 0);
    const Loaded before(source), after(bmp);
    for (int y = 0; y < 201; ++y) {
        for (int x = 0; x < 150; ++x) ASSERT_EQ(before.pixel(x, y), after.pixel(x, y));
    }
}

TEST_F(Conversion, TurnsThatCannotBeMadeWriteNothing) {
    const struct {
        std::string file;
        int angle, result;
    } rows[] = {{Picture(8, 8).bmp(8, true), 45, -1},
                {Picture(8, 8).bmp(8, true), 360, -1},
                {BmpHeader{.bitsPerPixel = 16}.text() + std::string(64, 'x'), 90, -12},
                {BmpHeader{.bitsPerPixel = 2}.text() + std::string(64, 'x'), 90, -12},
                {BmpHeader{.height = 9}.text(), 90, -13},
                {"BM", 90, -12}};
    for (const auto& row : rows) {
        writeFile(source, row.file);
        EXPECT_EQ(rorateImage(source.c_str(), bmp.c_str(), row.angle), row.result);
        EXPECT_FALSE(std::filesystem::exists(bmp));
    }
    writeFile(source, Picture(8, 8).bmp(8, true));
    failAllocation(2);
    EXPECT_EQ(rorateImage(source.c_str(), bmp.c_str(), 90), -31);
}

TEST_F(Conversion, Base64) {
    const struct {
        std::string text;
        int result;
        std::string decoded;
    } rows[] = {
        {"QUJD", 0, "ABC"},
        {"QUI=", 0, "AB"},
        {"QQ==", 0, "A"},
        {"QQ==QUJD", 0, "AA"},
        {"Q===QUJD", 0, "@A"},
        {"QUJ\nQUJD", 0, "ABP"},
        {"QU JD\r\n\n", 0, "ABC"},
        {"QUJD\nQUJD", -2, ""},
        {"QU*D", -1, ""},
        {"QU\tD", -1, ""},
        {"+/+/", 0, "\xFB\xFF\xBF"},
        {"", -1, ""},
        {"\xC1\xC2\xC3\xC4", -1, ""},
    };
    for (const auto& row : rows) {
        std::string out(16, '\0');
        int length = 77;
        EXPECT_EQ(base64_decode(reinterpret_cast<const unsigned char*>(row.text.data()), static_cast<int>(row.text.size()),
                                reinterpret_cast<unsigned char*>(out.data()), &length),
                  row.result)
            << row.text;
        EXPECT_EQ(row.result == 0 ? out.substr(0, static_cast<std::size_t>(length)) : "", row.decoded) << row.text;
        EXPECT_TRUE(row.result == 0 || length == 77);
    }
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
    EXPECT_EQ(saveFileData(bmp.c_str(), reinterpret_cast<const unsigned char*>("secret"), 6), 0);
    EXPECT_EQ(readFile(source), "precious");
    EXPECT_EQ(readFile(bmp), "secret");
    struct stat status {};
    ASSERT_EQ(lstat(bmp.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600U);
    EXPECT_EQ(saveFileData(bmp.c_str(), nullptr, 6), -3);
    EXPECT_EQ(saveFileData("", reinterpret_cast<const unsigned char*>("x"), 1), -2);
    EXPECT_EQ(saveFileData(nullptr, reinterpret_cast<const unsigned char*>("x"), 1), -3);
}

}  // namespace
}  // namespace passbook::tests
