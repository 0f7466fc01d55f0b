// The driver and the virtual printer, which know nothing of each other: what the host asked for is on the
// page.
#include <gtest/gtest.h>

#include <random>

#include "api/passbook.h"
#include "image/convert.h"
#include "sim/program/running.h"
#include "tests/day.h"
#include "tests/plain_picture.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

using Random = std::mt19937;

int pick(Random& random, int from, int to) {
    return std::uniform_int_distribution<int>(from, to)(random);
}

int toDots(int millimetres) {
    return static_cast<int>(millimetres * 180 / 25.4);
}

/// A picture that the printer's 1/120-inch steps can place exactly at xDots: either no blank gap is wide
/// enough to be jumped over, or every block behind one begins on a dot that such a step reaches.
Picture randomPicture(Random& random, int xDots) {
    Picture picture(pick(random, 1, 420), pick(random, 1, 150));
    const auto inkColumn = [&](int x, int percent) {
        for (int y = 0; y < picture.height; ++y)
            if (pick(random, 1, 100) <= percent)
                picture.at(x, y) = static_cast<std::uint8_t>(pick(random, 0, 199));
    };
    const int percent = pick(random, 0, 1) == 0 ? pick(random, 30, 100) : 8;
    for (int x = 0; x < picture.width;) {
        const int blockEnd = x + pick(random, 1, 80);
        for (bool first = true; x < blockEnd && x < picture.width; ++x, first = false)
            inkColumn(x, first ? 100 : percent);
        x += pick(random, 0, 150);
        while ((xDots + x) % 3 == 1)
            ++x;
    }
    if (pick(random, 0, 1) == 0) {  // bands of blank rows, with ink at most in their last, partial byte
        for (int y = pick(random, 0, 30); y < picture.height; y += pick(random, 1, 60)) {
            for (int end = y + pick(random, 1, 40); y < end && y < picture.height; ++y)
                for (int x = 0; x < picture.width / 8 * 8; ++x)
                    picture.at(x, y) = static_cast<std::uint8_t>(pick(random, 200, 255));
        }
    }
    return picture;
}

/// Writes the picture into a file of the kind that the name tells; returns what is left of it in there.
Picture written(Picture picture, const std::string& name) {
    if (name == "a.png") {
        writePng(picture, name);
    } else if (name == "a.jpg") {
        writeFile("8.bmp", picture.bmp(8, true));
        EXPECT_EQ(convertBMPtoJPG("8.bmp", name.c_str(), 80), 0);
        EXPECT_EQ(convertJPGtoBMP(name.c_str(), "decoded.bmp"), 0);
        const std::string rows = LoadedBmp("decoded.bmp").rows;
        for (std::size_t i = 0; i < picture.grey.size(); ++i) {
            const auto width = static_cast<std::size_t>(picture.width);
            picture.grey[i] = static_cast<std::uint8_t>(rows[i / width * ((width + 3) / 4 * 4) + i % width]);
        }
    } else {
        const int depth = std::atoi(name.c_str());
        for (std::uint8_t& grey : picture.grey)
            grey = depth >= 8 ? grey : grey < 200 ? 0 : 255;
        writeFile(name, picture.bmp(depth, picture.grey[0] % 2 == 0));
    }
    return picture;
}

/// Prints 200 random pictures from files of such kinds, upright and turned, and compares the pages.
void expectPicturesAsTheyAre(sim::Family family, const std::vector<std::string>& kinds, int mostTurns) {
    const bool oli = family == sim::Family::oli;
    sim::RunningPrinter printer({.family = family});
    const char* const port = printer.name().c_str();
    if (oli) {
        ASSERT_EQ(YARDO_PR2_OpenPort(port), 0);
        ASSERT_EQ(YARDO_PR2_InitPrinter(2, 5), 0);
    }
    for (unsigned seed = 0; seed < 200; ++seed) {
        Random random(seed);
        int x = pick(random, 0, 60);
        while (toDots(x) % 3 == 1)
            ++x;
        const int y = pick(random, 0, 100);
        const Picture original = randomPicture(random, toDots(x));
        for (const std::string& kind : kinds) {
            Picture picture = written(original, kind);
            for (int turns = 0; turns <= mostTurns; ++turns, picture = turnedOnce(picture)) {
                SCOPED_TRACE("seed " + std::to_string(seed) + ", " + kind + ", " + std::to_string(turns) + " turns");
                if (oli) {
                    ASSERT_EQ(YARDO_PR2_InsertPaper(), 0);
                    ASSERT_EQ(YARDO_PrintBmpOLI(kind.c_str(), true, x, y), 0);
                } else {
                    ASSERT_EQ(PT_PrintImageFileRevolve(port, 0, 1, 10 * x, 10 * y, 0, kind.c_str(), turns), 0);
                    ASSERT_EQ(PT_Eject(port, 0), 0);
                }
                const auto page = printer.takePage(std::chrono::seconds(10));
                ASSERT_TRUE(page.has_value());
                ASSERT_EQ(differences(*page, expectedDots(picture, family), toDots(x), toDots(y) / 3 * 3), 0);
                (void)printer.takeEvents();
            }
        }
    }
    EXPECT_EQ(YARDO_PR2_ClosePort(), oli ? 0 : -6);
    EXPECT_EQ(shown(printer.takeMistakes()), Events{});
}

TEST_F(Day, PicturesComeOutAsTheyAreOnOli) {
    expectPicturesAsTheyAre(sim::Family::oli, {"1.bmp", "4.bmp", "8.bmp", "24.bmp", "32.bmp"}, 0);
}
TEST_F(Day, PicturesComeOutAsTheyAreOnOki) {
    expectPicturesAsTheyAre(sim::Family::oki, {"8.bmp", "24.bmp", "a.jpg", "a.png"}, 3);
}

TEST_F(Day, AnswersInPiecesAreReadWhole) {
    sim::RunningPrinter printer({.stripes = {"", "6222020200112233445=4912"},
                                 .answers = {{.how = sim::AnswerTrouble::How::pieces, .size = 3}}});
    ASSERT_EQ(YARDO_PR2_OpenPort(printer.name().c_str()), 0);
    unsigned char identifier[14] = {};
    char buffer0[64] = "", buffer1[64] = "";
    const std::vector<int> results = {
        YARDO_PR2_InitPrinter(1, 5),    YARDO_PR2_GetFWID(identifier),
        YARDO_PR2_GetPaperStatus(),     YARDO_PR2_GetPrinterStatus(),
        YARDO_PR2_MSW(0, "written", 7), YARDO_PR2_MSRALL(buffer0, sizeof buffer0, buffer1, sizeof buffer1),
        YARDO_PR2_ClosePort()};
    EXPECT_EQ(results, (std::vector{0, 0, 4, 1, 0, 0, 0}));
    EXPECT_STREQ(reinterpret_cast<const char*>(identifier), "PASSBOOKSIM10");
    EXPECT_STREQ(buffer0, "written");
    EXPECT_STREQ(buffer1, "6222020200112233445=4912");
    EXPECT_EQ(shown(printer.takeMistakes()), Events{});
}

}  // namespace
}  // namespace passbook::tests
