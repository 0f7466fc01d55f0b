// The driver and the virtual printer, which know nothing of each other: what the host asked for is on the
// page.
#include <gtest/gtest.h>

#include <random>

#include "api/passbook.h"
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

/// Parts that lie anywhere, with blank rows and columns between them. The first column of a part is inked, and where a
/// head step of 1/120 inch reaches it: one behind a wide gap is jumped to.
Picture randomPicture(Random& random, int xDots) {
    Picture picture(pick(random, 1, 420), pick(random, 1, 150));
    for (int parts = pick(random, 1, 6); parts > 0; --parts) {
        int left = pick(random, 0, picture.width);
        left += (xDots + left) % 3 == 1 ? 1 : 0;
        const int right = pick(random, left, 420), percent = pick(random, 30, 100);
        const int top = pick(random, 0, picture.height), bottom = pick(random, top, picture.height);
        for (int x = left; x < std::min(right, picture.width); ++x)
            for (int y = top; y < bottom; ++y)
                if (x == left || pick(random, 1, 100) <= percent)
                    picture.at(x, y) = static_cast<std::uint8_t>(pick(random, 0, 199));
    }
    for (std::uint8_t& grey : picture.grey)
        grey = grey < 200 ? grey : static_cast<std::uint8_t>(pick(random, 200, 255));
    return picture;
}

// In files of every depth, upright and turned.
TEST_F(Day, PicturesComeOutAsTheyAre) {
    for (const auto family : {sim::Family::oli, sim::Family::oki}) {
        const bool oli = family == sim::Family::oli;
        sim::RunningPrinter printer({.family = family});
        const char* const port = printer.name().c_str();
        if (oli) {
            ASSERT_EQ(YARDO_PR2_OpenPort(port), 0);
            ASSERT_EQ(YARDO_PR2_InitPrinter(2, 5), 0);
        }
        for (unsigned seed = 0; seed < 200; ++seed) {
            Random random(seed);
            const int y = pick(random, 0, 100);
            int x = pick(random, 0, 60);
            x += toDots(x) % 3 == 1 ? 1 : 0;
            const Picture original = randomPicture(random, toDots(x));
            for (const int depth : {1, 4, 8, 24, 32}) {
                Picture picture = original;
                for (std::uint8_t& grey : picture.grey)
                    grey = depth >= 8 ? grey : grey < 200 ? 0 : 255;
                writeFile("a.bmp", picture.bmp(depth, seed % 2 == 0));
                for (int turns = 0; turns <= (oli ? 0 : 3); ++turns, picture = turnedOnce(picture)) {
                    SCOPED_TRACE(testing::Message() << (oli ? "OLI" : "OKI") << ", seed " << seed << ", " << depth
                                                    << " bits, " << turns << " turns");
                    if (oli) {
                        ASSERT_EQ(YARDO_PR2_InsertPaper(), 0);
                        ASSERT_EQ(YARDO_PrintBmpOLI("a.bmp", true, x, y), 0);
                    } else {
                        ASSERT_EQ(PT_PrintImageFileRevolve(port, 0, 1, 10 * x, 10 * y, 0, "a.bmp", turns), 0);
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
}

}  // namespace
}  // namespace passbook::tests
