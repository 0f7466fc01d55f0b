// The driver and the virtual printer, which know nothing of each other: what the host asked for is on the
// page, and whatever goes wrong between the two, the host gets a documented code and the next job works.
#include <gtest/gtest.h>

#include <png.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <random>
#include <set>
#include <thread>

#include "api/passbook.h"
#include "image/convert.h"
#include "sim/printer.h"
#include "tests/day.h"
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

/// The picture as a JPEG file, and what is left of it in one.
Picture throughJpeg(Picture picture, const std::string& path) {
    writeFile("8.bmp", picture.bmp(8, true));
    EXPECT_EQ(convertBMPtoJPG("8.bmp", path.c_str(), 80), 0);
    EXPECT_EQ(convertJPGtoBMP(path.c_str(), "decoded.bmp"), 0);
    const std::string rows = readFile("decoded.bmp").substr(54);
    for (std::size_t i = 0; i < picture.grey.size(); ++i) {
        const auto width = static_cast<std::size_t>(picture.width);
        picture.grey[i] = static_cast<std::uint8_t>(rows[i / width * ((width + 3) / 4 * 4) + i % width]);
    }
    return picture;
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

TEST_F(Day, AnyTransferMayFailInAnyWay) {
    for (const auto family : {sim::Family::kOli, sim::Family::kOki}) {
        const auto steps = Day::steps(family, "line");
        int transfers = 0;
        const auto spend = [&](FailingLine::Fault fault, int at) {
            FailingLine line{sim::Printer(scenario(family)), fault, at};
            const bool good = Day::spend(steps, [&line] { installPort(new LinePort(line)); });
            transfers = line.transfers;
            return good;
        };
        ASSERT_TRUE(spend(FailingLine::none, 0));
        const int all = transfers;
        for (const auto fault : {FailingLine::error, FailingLine::shortened, FailingLine::silence, FailingLine::garbage}) {
            for (int at = 1; at <= all && !HasFailure(); ++at) {
                SCOPED_TRACE("fault " + std::to_string(fault) + " at transfer " + std::to_string(at));
                (void)spend(fault, at);
                EXPECT_TRUE(spend(FailingLine::none, 0));
            }
        }
    }
}

}  // namespace
}  // namespace passbook::tests
