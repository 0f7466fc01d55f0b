// The driver and the virtual printer, which know nothing of each other: what the host asked for is on the
// page, and whatever goes wrong between the two, the host gets a documented code and the next job works.
#include <gtest/gtest.h>

#include <png.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <random>
#include <set>
#include <thread>
// libjpeg's header wants stdio.h before it.
#include <jpeglib.h>

#include "api/passbook.h"
#include "image/handles.h"
#include "sim/printer.h"
#include "tests/line.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

using Random = std::mt19937;

int pick(Random& random, int from, int to) { return std::uniform_int_distribution<int>(from, to)(random); }

int toDots(int millimetres) { return static_cast<int>(millimetres * 180 / 25.4); }

/// A picture that the printer's 1/120-inch steps can place exactly at xDots: either no blank gap is wide
/// enough to be jumped over, or every block behind one begins on a dot that such a step reaches.
Picture randomPicture(Random& random, int xDots) {
    Picture picture(pick(random, 1, 420), pick(random, 1, 150));
    const auto inkColumn = [&](int x, int percent) {
        for (int y = 0; y < picture.height; ++y) {
            if (pick(random, 1, 100) <= percent) picture.at(x, y) = static_cast<std::uint8_t>(pick(random, 0, 199));
        }
    };
    const int percent = pick(random, 0, 1) == 0 ? pick(random, 30, 100) : 8;
    for (int x = 0; x < picture.width;) {
        const int blockEnd = x + pick(random, 1, 80);
        for (bool first = true; x < blockEnd && x < picture.width; ++x, first = false) inkColumn(x, first ? 100 : percent);
        x += pick(random, 0, 150);
        while ((xDots + x) % 3 == 1) ++x;
    }
    if (pick(random, 0, 1) == 0) {  // bands of blank rows, with ink at most in their last, partial byte
        for (int y = pick(random, 0, 30); y < picture.height; y += pick(random, 1, 60)) {
            for (int end = y + pick(random, 1, 40); y < end && y < picture.height; ++y) {
                for (int x = 0; x < picture.width / 8 * 8; ++x) picture.at(x, y) = static_cast<std::uint8_t>(pick(random, 200, 255));
            }
        }
    }
    return picture;
}

/// The dots that a correct print of the picture shows: those below 200, but for rows that have ink only in
/// their last partial byte and lie in no strip, and the upper dot of a group that would be an escape
/// character.
std::vector<std::string> expectedDots(Picture picture, bool escapes = true) {
    std::vector<std::string> rows(static_cast<std::size_t>(picture.height));
    const auto inked = [&](int x, int y) { return y < picture.height && picture.at(x, y) < 200; };
    int blank = 0;
    for (int y = 0; y < picture.height;) {
        bool ink = false;
        for (int x = 0; x < picture.width / 8 * 8; ++x) ink = ink || inked(x, y);
        if (!ink) {
            ++blank;
            ++y;
            continue;
        }
        y -= blank % 3;
        blank = 0;
        for (int row = y; row < std::min(y + 24, picture.height); ++row) {
            std::string& line = rows[static_cast<std::size_t>(row)];
            line.assign(static_cast<std::size_t>(picture.width), '.');
            for (int x = 0; x < picture.width; ++x) {
                const int group = row - (row - y) % 8;
                const bool escape = escapes && row == group && inked(x, group + 1) && !inked(x, group + 2) && inked(x, group + 3) &&
                                    inked(x, group + 4) && !inked(x, group + 5) && !inked(x, group + 6) && !inked(x, group + 7);
                if (inked(x, row) && !escape) line[static_cast<std::size_t>(x)] = '#';
            }
        }
        y += 24;
    }
    return rows;
}

TEST(OnTheLine, TwoHundredPicturesComeOutAsTheyAre) {
    PrinterOnALine printer;
    const TemporaryDirectory directory;
    const std::string path = directory.file("picture.bmp");
    ASSERT_EQ(YARDO_PR2_OpenPort(printer.name().c_str()), 0);
    ASSERT_EQ(YARDO_PR2_InitPrinter(2, 5), 0);
    for (unsigned seed = 0; seed < 200; ++seed) {
        Random random(seed);
        int x = pick(random, 0, 60);
        while (toDots(x) % 3 == 1) ++x;
        const int y = pick(random, 0, 120);
        Picture picture = randomPicture(random, toDots(x));
        const int depths[] = {1, 4, 8, 24, 32};
        const int depth = depths[pick(random, 0, 4)];
        if (depth < 8) {
            for (std::uint8_t& grey : picture.grey) grey = grey < 200 ? 0 : 255;
        }
        writeFile(path, picture.bmp(depth, pick(random, 0, 1) == 0));
        printer.expect(expectedDots(picture), toDots(x), toDots(y) / 3 * 3);
        ASSERT_EQ(YARDO_PR2_InsertPaper(), 0);
        ASSERT_EQ(YARDO_PrintBmpOLI(path.c_str(), true, x, y), 0);
        ASSERT_EQ(printer.differences(), 0) << "seed " << seed << ", " << picture.width << " x " << picture.height << " at " << x << ", "
                                            << y << ", " << depth << " bits";
    }
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    EXPECT_EQ(printer.surprises(), std::set<std::string>{});
}

/// The picture as a JPEG file, and what is left of it in one: what libjpeg makes of it again.
Picture throughJpeg(const Picture& picture, const std::string& path) {
    const FileHandle file(std::fopen(path.c_str(), "wb+"));
    Picture decoded(picture.width, picture.height);
    jpeg_error_mgr errors{};
    jpeg_compress_struct out{};
    out.err = jpeg_std_error(&errors);
    jpeg_create_compress(&out);
    jpeg_stdio_dest(&out, file.get());
    out.image_width = static_cast<JDIMENSION>(picture.width);
    out.image_height = static_cast<JDIMENSION>(picture.height);
    out.input_components = 1;
    out.in_color_space = JCS_GRAYSCALE;
    jpeg_set_defaults(&out);
    jpeg_start_compress(&out, TRUE);
    for (int y = 0; y < picture.height; ++y) {
        JSAMPROW row = const_cast<JSAMPROW>(&picture.grey[static_cast<std::size_t>(y * picture.width)]);  // only read
        (void)jpeg_write_scanlines(&out, &row, 1);
    }
    jpeg_finish_compress(&out);
    jpeg_destroy_compress(&out);
    std::rewind(file.get());
    jpeg_decompress_struct in{};
    in.err = &errors;
    jpeg_create_decompress(&in);
    jpeg_stdio_src(&in, file.get());
    (void)jpeg_read_header(&in, TRUE);
    (void)jpeg_start_decompress(&in);
    for (int y = 0; y < picture.height; ++y) {
        JSAMPROW row = &decoded.at(0, y);
        (void)jpeg_read_scanlines(&in, &row, 1);
    }
    (void)jpeg_finish_decompress(&in);
    jpeg_destroy_decompress(&in);
    return decoded;
}

void writePng(const Picture& picture, const std::string& path) {
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(picture.width);
    image.height = static_cast<png_uint_32>(picture.height);
    image.format = PNG_FORMAT_GRAY;
    ASSERT_NE(png_image_write_to_file(&image, path.c_str(), 0, picture.grey.data(), 0, nullptr), 0);
}

/// A clockwise quarter turn.
Picture turnedOnce(const Picture& picture) {
    Picture turned(picture.height, picture.width);
    for (int y = 0; y < picture.height; ++y) {
        for (int x = 0; x < picture.width; ++x)
            turned.at(picture.height - 1 - y, x) = picture.grey[static_cast<std::size_t>(y * picture.width + x)];
    }
    return turned;
}

TEST(OnTheLine, TwoHundredPicturesOfAllKindsAndTurnsOnOki) {
    sim::Scenario scenario;
    scenario.family = sim::Family::kOki;
    PrinterOnALine printer(scenario);
    const TemporaryDirectory directory;
    std::filesystem::current_path(directory.file(""));
    for (unsigned seed = 0; seed < 200; ++seed) {
        Random random(seed);
        const int x = pick(random, 0, 60), y = pick(random, 0, 100);
        const Picture original = randomPicture(random, toDots(x));
        for (const char* kind : {"a.jpg", "a.png", "24.bmp", "8.bmp"}) {
            Picture picture = original;
            if (kind == std::string("a.jpg"))
                picture = throughJpeg(original, kind);
            else if (kind == std::string("a.png"))
                writePng(original, kind);
            else
                writeFile(kind, picture.bmp(std::atoi(kind), seed % 2 == 0));
            for (int turns = 0; turns < 4; ++turns, picture = turnedOnce(picture)) {
                printer.expect(expectedDots(picture, false), toDots(x), toDots(y) / 3 * 3);
                ASSERT_EQ(PT_PrintImageFileRevolve(printer.name().c_str(), 0, 1, 10 * x, 10 * y, 0, kind, turns), 0);
                ASSERT_EQ(PT_Eject(printer.name().c_str(), 0), 0);
                printer.waitForPage();
                ASSERT_EQ(printer.differences(), 0) << "seed " << seed << ", " << kind << ", " << turns << " turns";
            }
        }
    }
    std::filesystem::current_path("/");
    EXPECT_EQ(printer.surprises(), std::set<std::string>{});
}

TEST(OnTheLine, AnswersInPiecesAreReadWhole) {
    sim::Scenario scenario;
    scenario.split = 3;
    scenario.stripes[1] = "6222020200112233445=4912";
    PrinterOnALine printer(scenario);
    ASSERT_EQ(YARDO_PR2_OpenPort(printer.name().c_str()), 0);
    unsigned char identifier[14] = {};
    char buffer0[64] = "", buffer1[64] = "";
    EXPECT_EQ(YARDO_PR2_InitPrinter(1, 5), 0);
    EXPECT_EQ(YARDO_PR2_GetFWID(identifier), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(identifier), "PASSBOOKSIM10");
    EXPECT_EQ(YARDO_PR2_GetPaperStatus(), 4);
    EXPECT_EQ(YARDO_PR2_GetPrinterStatus(), 1);
    EXPECT_EQ(YARDO_PR2_MSW(0, "written", 7), 0);
    EXPECT_EQ(YARDO_PR2_MSRALL(buffer0, sizeof buffer0, buffer1, sizeof buffer1), 0);
    EXPECT_STREQ(buffer0, "written");
    EXPECT_STREQ(buffer1, "6222020200112233445=4912");
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    EXPECT_EQ(printer.surprises(), std::set<std::string>{});
}

/// The virtual printer without a line, of which the n-th transfer fails.
struct FailingLine {
    enum Fault { none, error, shortened, silence, garbage };
    sim::Printer printer;
    Fault fault = none;
    int at = 0, transfers = 0, reads = 0;
    std::vector<std::uint8_t> pending{};

    Fault due() { return ++transfers == at ? fault : none; }
};

/// The port of one call, for some close theirs.
class LinePort : public Protocol {
 public:
    explicit LinePort(FailingLine& line) : line_(line) {}
    int OpenDevice() override { return 0; }
    int CloseDevice() override { return 0; }
    int WritePipe(const unsigned char* data) override {
        std::vector<std::uint8_t> sent(data, data + writeLength);
        const auto fault = line_.due();
        if (fault == FailingLine::error) return -1;
        if (fault == FailingLine::silence) return 0;  // taken by the system, never seen by the printer
        if (fault == FailingLine::shortened) sent.resize(sent.size() / 2);
        for (std::uint8_t& byte : sent) byte ^= fault == FailingLine::garbage ? 0x55 : 0;
        line_.printer.receive(sent);
        return sent.empty() ? -1 : 0;
    }
    int ReadPipe(unsigned char* buffer) override {
        line_.printer.advance(std::chrono::milliseconds(++line_.reads));
        auto& pending = line_.pending;
        if (pending.empty() && line_.printer.answerPending()) pending = line_.printer.takeAnswer();
        auto count = std::min(pending.size(), static_cast<std::size_t>(readLength));
        const auto fault = line_.due();
        if (fault == FailingLine::silence) pending.clear();
        if (fault == FailingLine::error || fault == FailingLine::silence) count = 0;
        if (fault == FailingLine::shortened) count = std::min<std::size_t>(count, 1);
        for (std::uint8_t& byte : pending) byte ^= fault == FailingLine::garbage ? 0xFF : 0;
        if (count == 0) {
            virtualClock.microseconds += 1'000'000;  // the line's own time-out
            return -1;
        }
        std::memcpy(buffer, pending.data(), count);
        pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(count));
        readLength = static_cast<int>(count);
        return 0;
    }

 private:
    FailingLine& line_;
};

struct Step {
    const char* name;
    std::function<int()> call;
    std::set<int> documented;  // the header's results; the first one is that of a good line
};

char buffer0[64], buffer1[64];
unsigned char identifier[13];

std::vector<Step> oliDay() {
    return {
        {"init", [] { return YARDO_PR2_InitPrinter(2, 3); }, {0, -30}},
        {"insert", YARDO_PR2_InsertPaper, {0, -3}},
        {"paper", YARDO_PR2_GetPaperStatus, {4, 1, 2, 3, -3, -20}},
        {"format", [] { return YARDO_PR2_SetFormat(12, 1, 1, 1); }, {0, -3}},
        {"space", [] { return YARDO_PR2_SetLineSpace(0, 4.2); }, {0, -3}},
        {"text", [] { return YARDO_PR2_PrintData(0, 10, 10, "存款 100.00", -1); }, {0, -3}},
        {"line", YARDO_PR2_LR, {0, -3}},
        {"picture", [] { return YARDO_PrintBmpOLI("a.bmp", false, 20, 20); }, {0, -3}},
        {"printer", YARDO_PR2_GetPrinterStatus, {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, -3, -22}},
        {"stripe write", [] { return YARDO_PR2_MSW(0, "12=34", 5); }, {0, -3}},
        {"stripes", [] { return YARDO_PR2_MSRALL(buffer0, 64, buffer1, 64); }, {0, -3, -4}},
        {"identifier", [] { return YARDO_PR2_GetFWID(identifier); }, {0, -4}},
        {"scan", [] { return YARDO_ScantoFileOLI("f.bmp", "b.bmp", 2, 0, 0, false, 2, 200, 1); }, {0, 2, -40, -31}},
        {"removal", [] { return YARDO_PR2_SPB(4); }, {0, -3, -20}},
    };
}

std::vector<Step> okiDay() {
    return {
        {"text", [] { return PT_PrintTxtStream("line", 0, 1, 10, 10, "存款\n100.00", -1); }, {0, -3}},
        {"picture", [] { return PT_PrintImageFileRevolve("line", 0, 1, 20, 20, 0, "a.bmp", 1); }, {0, -3}},
        {"scan", [] { return YARDO_ScantoFileOKI("f.bmp", "b.jpg", 2, 0, 0, 0, false, 2, 200, 1); }, {0, -3, -20, -21, -4, -40, -31}},
        {"eject", [] { return PT_Eject("line", 0); }, {0, -3}},
    };
}

/// Does the day on a line; returns the results, and the transfers that it took.
std::pair<std::vector<int>, int> spend(const std::vector<Step>& day, sim::Family family, FailingLine::Fault fault, int at) {
    sim::Scenario scenario;
    scenario.family = family;
    const auto row = [](int, std::span<std::uint8_t> pixels) { std::fill(pixels.begin(), pixels.end(), std::uint8_t{0x30}); };
    scenario.scan.sides = {sim::Document{40, 16, row}, sim::Document{40, 16, row}};
    scenario.scan.block = 300;
    virtualClock = {};
    FailingLine line{sim::Printer(scenario), fault, at};
    installPort(new LinePort(line));
    EXPECT_EQ(YARDO_PR2_OpenPort("line"), 0);
    std::vector<int> results;
    testing::internal::CaptureStdout();  // scans tell their progress
    for (const Step& step : day) {
        if (protocol == nullptr) installPort(new LinePort(line));
        results.push_back(step.call());
        EXPECT_TRUE(step.documented.contains(results.back())) << step.name << " gave " << results.back();
    }
    (void)testing::internal::GetCapturedStdout();
    EXPECT_LT(virtualClock.microseconds - VirtualClock{}.microseconds, 250'000'000);
    EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
    // Of a scan that failed, a private temporary file may be there; nothing else is left.
    for (const auto& entry : std::filesystem::directory_iterator(".")) {
        if (entry.path().filename().string().starts_with(".tmp_")) {
            EXPECT_EQ(entry.status().permissions(), std::filesystem::perms(0600));
            std::filesystem::remove(entry);
        }
    }
    return {results, line.transfers};
}

TEST(Torture, AnyTransferMayFailInAnyWay) {
    const TemporaryDirectory directory;
    std::filesystem::current_path(directory.file(""));
    Random random(7);
    writeFile("a.bmp", randomPicture(random, 141).bmp(24, true));
    const std::vector<int> goodOli = {0, 0, 4, 0, 0, 0, 0, 0, 1, 0, 0, 0, 0, 0}, goodOki = {0, 0, 0, 0};
    for (const auto& [day, family, good] : {std::tuple{oliDay(), sim::Family::kOli, goodOli}, {okiDay(), sim::Family::kOki, goodOki}}) {
        const auto [results, transfers] = spend(day, family, FailingLine::none, 0);
        ASSERT_EQ(results, good);
        for (const auto fault : {FailingLine::error, FailingLine::shortened, FailingLine::silence, FailingLine::garbage}) {
            for (int at = 1; at <= transfers && !::testing::Test::HasFailure(); ++at) {
                SCOPED_TRACE("fault " + std::to_string(fault) + " at transfer " + std::to_string(at));
                (void)spend(day, family, fault, at);
                EXPECT_EQ(spend(day, family, FailingLine::none, 0).first, good);
            }
        }
    }
    std::filesystem::current_path("/");
}

}  // namespace
}  // namespace passbook::tests
