// Scans from the virtual printer over a pseudo-terminal: the files show the document that lies in it.
#include <gtest/gtest.h>

#include <filesystem>

#include "api/passbook.h"
#include "sim/program/running.h"
#include "sim/scan.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

/// A document of which no two pixels near each other are alike.
sim::Document confetti(int width, int height, unsigned seed) {
    const auto row = [seed](int y, std::span<std::uint8_t> bgr) {
        for (std::size_t i = 0; i < bgr.size(); ++i)
            bgr[i] = static_cast<std::uint8_t>((i + seed + static_cast<unsigned>(y) * 977U) * 2654435761U >> 19);
    };
    return {width, height, row};
}

/// What the file of a side must hold. OKI: the printer's own file. OLI: its rows behind headers of the driver's.
std::string expected(sim::Family family, const sim::Document& document, int bits, bool bottomUp) {
    const sim::ScanImage image(document, bits, sim::Resolution::dpi200);
    sim::ScanBytes bytes(image, sim::ScanBytes::Form::bitmap, bottomUp);
    const auto all = bytes.take(static_cast<std::size_t>(bytes.size()));
    const std::string own(all.begin(), all.end()), rows = own.substr(54 + (bits < 24 ? 4U << bits : 0U));
    const auto size = static_cast<std::uint32_t>(rows.size());
    const BmpHeader header{.width = image.width(),
                           .height = bottomUp ? image.height() : -image.height(),
                           .bitsPerPixel = bits,
                           .imageSize = size};
    return family == sim::Family::oki ? own : header.text() + rows;
}

// Blocks of 1 and of 8 bytes cannot be carried on OKI, nor blocks of 6 bytes that begin with 03 on OLI: the framing
// gives them a meaning of their own, and the virtual printer does without them as a real one must.
TEST(ScanOnTheLine, FilesShowTheDocument) {
    const TemporaryDirectory directory;
    const std::string front = directory.file("front"), back = directory.file("back");
    const char *const to = front.c_str(), *const other = back.c_str();
    const int bitsOf[] = {1, 4, 8, 24};
    for (const auto family : {sim::Family::oki, sim::Family::oli}) {
        for (const int type : {0, 1, 2, 3}) {
            for (const int sides : {0, 1, 2}) {
                for (const std::size_t block : {2U, 3U, 7U, 9U, 100U, 2040U, 2048U, 4094U, 4095U}) {
                    SCOPED_TRACE((family == sim::Family::oki ? "OKI, type " : "OLI, type ") + std::to_string(type) +
                                 ", sides " + std::to_string(sides) + ", blocks of " + std::to_string(block));
                    const int direction = static_cast<int>(block & 1), bits = bitsOf[type];
                    const int width = block < 50 ? 13 : 211, height = block < 50 ? 16 : 104;
                    sim::Scenario scenario{.family = family};
                    scenario.scan.sides = {confetti(width, height, 1), confetti(width, height, 5)};
                    scenario.scan.block = block;
                    std::filesystem::remove(front);
                    std::filesystem::remove(back);
                    sim::RunningPrinter printer(scenario);
                    ASSERT_EQ(YARDO_PR2_OpenPort(printer.name().c_str()), 0);
                    testing::internal::CaptureStdout();
                    const int result = family == sim::Family::oki
                                           ? YARDO_ScantoFileOKI(to, other, type, 1, 2, 3, true, sides, 200, direction)
                                           : YARDO_ScantoFileOLI(to, other, type, 1, 2, true, sides, 200, direction);
                    (void)testing::internal::GetCapturedStdout();
                    EXPECT_EQ(std::pair(result, YARDO_PR2_ClosePort()), std::pair(0, 0));
                    EXPECT_TRUE(printer.takeMistakes().empty());
                    const auto expectedOf = [&](std::size_t side) {
                        return expected(family, scenario.scan.sides[side], bits, direction == 1);
                    };
                    ASSERT_TRUE(readFile(front) == (sides == 1 ? "" : expectedOf(0)));
                    ASSERT_TRUE(readFile(back) == (sides == 0 ? "" : expectedOf(1)));
                }
            }
        }
    }
}

}  // namespace
}  // namespace passbook::tests
