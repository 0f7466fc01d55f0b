// Scans from the virtual printer over a pseudo-terminal: the files show the document that lies in it.
#include <gtest/gtest.h>

#include <filesystem>

#include "api/passbook.h"
#include "image/convert.h"
#include "sim/program/running.h"
#include "sim/scan.h"
#include "tests/support.h"

namespace passbook::tests {
namespace {

/// A document of which no two pixels near each other are alike.
sim::Document confetti(int width, int height, unsigned seed) {
    return {width, height,
            [seed](int y, std::span<std::uint8_t> bgr) {
                for (std::size_t i = 0; i < bgr.size(); ++i)
                    bgr[i] =
                        static_cast<std::uint8_t>((i + seed + static_cast<unsigned>(y) * 977U) * 2654435761U >> 19);
            }};
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

class ScanOnTheLine : public ::testing::Test {
 protected:
    TemporaryDirectory directory;
    const std::string front = directory.file("front"), back = directory.file("back"),
                      jpeg = directory.file("front.jpg");

    int scan(const sim::Scenario& scenario, int imageType, int sides, int direction, const std::string& frontName) {
        sim::RunningPrinter printer(scenario);
        EXPECT_EQ(YARDO_PR2_OpenPort(printer.name().c_str()), 0);
        testing::internal::CaptureStdout();
        const int result =
            scenario.family == sim::Family::oki
                ? YARDO_ScantoFileOKI(frontName.c_str(), back.c_str(), imageType, 1, 2, 3, true, sides, 200, direction)
                : YARDO_ScantoFileOLI(frontName.c_str(), back.c_str(), imageType, 1, 2, true, sides, 200, direction);
        (void)testing::internal::GetCapturedStdout();
        EXPECT_EQ(YARDO_PR2_ClosePort(), 0);
        EXPECT_TRUE(printer.takeMistakes().empty());
        return result;
    }
    static sim::Scenario scenarioOf(sim::Family family, int width, int height, std::size_t block) {
        sim::Scenario scenario{.family = family};
        scenario.scan.sides = {confetti(width, height, 1), confetti(width, height, 5)};
        scenario.scan.block = block;
        return scenario;
    }
};

// Blocks of 1 and of 8 bytes cannot be carried on OKI, nor blocks of 6 bytes that begin with 03 on OLI: the framing
// gives them a meaning of their own, and the virtual printer does without them as a real one must.
TEST_F(ScanOnTheLine, FilesShowTheDocument) {
    const int bitsOf[] = {1, 4, 8, 24};
    for (const auto family : {sim::Family::oki, sim::Family::oli}) {
        for (const int imageType : {0, 1, 2, 3}) {
            for (const int sides : {0, 1, 2}) {
                for (const std::size_t block : {2U, 3U, 7U, 9U, 100U, 2040U, 2048U, 4094U, 4095U}) {
                    const bool bottomUp = (block & 1) != 0;
                    const auto scenario = scenarioOf(family, block < 50 ? 13 : 211, block < 50 ? 16 : 104, block);
                    std::filesystem::remove(front);
                    std::filesystem::remove(back);
                    SCOPED_TRACE((family == sim::Family::oki ? "OKI, type " : "OLI, type ") +
                                 std::to_string(imageType) + ", sides " + std::to_string(sides) + ", blocks of " +
                                 std::to_string(block));
                    ASSERT_EQ(scan(scenario, imageType, sides, bottomUp ? 1 : 0, front), 0);
                    const int bits = bitsOf[imageType];
                    ASSERT_TRUE(readFile(front) ==
                                (sides == 1 ? "" : expected(family, scenario.scan.sides[0], bits, bottomUp)));
                    ASSERT_TRUE(readFile(back) ==
                                (sides == 0 ? "" : expected(family, scenario.scan.sides[1], bits, bottomUp)));
                }
            }
        }
    }
}

TEST_F(ScanOnTheLine, JpegsShowItWithinTheirQuality) {
    for (const int imageType : {0, 1, 2, 3}) {  // OLI makes no JPEGs
        auto scenario = scenarioOf(sim::Family::oki, 200, 64, 4095);
        scenario.scan.sides[0].row = [](int y, std::span<std::uint8_t> bgr) {  // blocks of 8, which a JPEG can keep
            for (std::size_t i = 0; i < bgr.size(); ++i)
                bgr[i] = i / 24 % 2 == static_cast<std::size_t>(y) / 8 % 2 ? 255 : 0;
        };
        ASSERT_EQ(scan(scenario, imageType, 0, 0, jpeg), 0);
        ASSERT_EQ(convertJPGtoBMP(jpeg.c_str(), front.c_str()), 0);
        const std::string rows = readFile(front).erase(0, 54);
        const std::size_t pixel = imageType == 3 ? 3 : 1;
        ASSERT_EQ(rows.size(), 200 * 64 * pixel);
        for (std::size_t i = 0; i < rows.size(); ++i) {
            const std::size_t at = i / pixel, want = at % 200 / 8 % 2 == at / 200 / 8 % 2 ? 255 : 0;
            ASSERT_LT(std::abs(static_cast<unsigned char>(rows[i]) - static_cast<int>(want)), 40)
                << "type " << imageType << ", pixel " << at;
        }
    }
}

}  // namespace
}  // namespace passbook::tests
