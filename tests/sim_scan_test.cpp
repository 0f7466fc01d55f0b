#include <gdk-pixbuf/gdk-pixbuf.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tests/sim_bench.h"

namespace passbook::sim {
namespace {

using Pieces = std::vector<std::string>;

// The picture on both sides, which differ in `seed`: greys, or colours no two of which are the same grey.
struct Picture {
    int width;
    int height;
    int seed;
    bool coloured;

    // Blue, green and red of a pixel.
    [[nodiscard]] std::array<int, 3> at(int x, int y) const {
        const int value = (x * 37 + y * 101 + seed) % 256;
        return coloured ? std::array{value, 255 - value, value / 2} : std::array{value, value, value};
    }
    [[nodiscard]] Document document() const {
        const Picture copy = *this;
        return {width, height, [copy](int y, std::span<std::uint8_t> bgr) {
                    for (std::size_t i = 0; i < bgr.size(); ++i) {
                        bgr[i] = static_cast<std::uint8_t>(copy.at(static_cast<int>(i / 3), y)[i % 3]);
                    }
                }};
    }
};

struct Kind {
    char letter;
    char colour;
    int bits;
};
constexpr std::array<Kind, 4> kKinds{{{'A', '\xAA', 1}, {'Q', '\xAA', 4}, {'a', '\xAA', 8}, {'a', '\xCC', 24}}};

struct Finer {
    int code;
    int halves;  // how many half pixels become of one pixel, each way
};
constexpr std::array<Finer, 4> kFiner{{{3, 2}, {2, 3}, {1, 4}, {0, 6}}};

// What a host sends to have a document scanned.
std::string scanCommands(Family family, const Kind& kind, std::array<bool, 2> sides, int code = 3, bool fromBottom = false) {
    const auto mode = static_cast<char>(0x40 | code << 3 | (fromBottom ? 3 : 0));
    std::string letters;
    for (const bool wanted : sides) {
        letters += wanted ? kind.letter : 'q';
    }
    letters += "\xC8\x41\x1B\0"s;
    if (family == Family::kOki) {
        return "\0\033}SM"s + mode + kind.colour + "\033}SD" + letters + "\033}D";
    }
    return "\033YP"s + mode + kind.colour + "\033}P" + letters + "\033Z";
}

Pieces piecesOf(Bench& bench) {
    Pieces pieces;
    while (bench.printer.answerPending()) {
        EXPECT_TRUE(bench.printer.answerStandsAlone());
        pieces.push_back(bench.answer());
    }
    return pieces;
}

// A side as it came: blue, green and red of each pixel, or its brightness three times over, in the order of
// the rows of the picture. -1 stands for what did not come.
struct Side {
    int width = 0;
    int height = 0;
    std::vector<int> levels{};
};

// Takes one side from the front of the pieces, as a host that judges every read by its length would.
Side takeOki(Pieces& pieces, int bits, bool fromBottom) {
    const std::string header = pieces.at(0);
    EXPECT_LE(header.size(), 2048U);
    std::string file = header.substr(8);
    std::size_t i = 1;
    for (; i < pieces.size() && pieces[i] != "\x06"; ++i) {
        EXPECT_TRUE(pieces[i].size() > 1 && pieces[i].size() != 8) << pieces[i].size();
        file += pieces[i];
    }
    EXPECT_LT(i, pieces.size()) << "no end";
    pieces.erase(pieces.begin(), pieces.begin() + static_cast<std::ptrdiff_t>(i) + 1);
    const auto size = static_cast<std::uint32_t>(file.size());
    const std::string little{static_cast<char>(size), static_cast<char>(size >> 8), static_cast<char>(size >> 16),
                             static_cast<char>(size >> 24)};
    EXPECT_EQ(header.substr(4, 4), little);
    EXPECT_EQ(file.at(28), bits);
    EXPECT_EQ(file.at(25) >= 0, fromBottom) << "the sign of its height";

    GdkPixbufLoader* loader = gdk_pixbuf_loader_new_with_type("bmp", nullptr);
    EXPECT_TRUE(gdk_pixbuf_loader_write(loader, reinterpret_cast<const guchar*>(file.data()), size, nullptr));
    EXPECT_TRUE(gdk_pixbuf_loader_close(loader, nullptr));
    GdkPixbuf* picture = gdk_pixbuf_loader_get_pixbuf(loader);
    Side side{gdk_pixbuf_get_width(picture), gdk_pixbuf_get_height(picture)};
    for (int y = 0; y < side.height; ++y) {
        const guchar* row = gdk_pixbuf_read_pixels(picture) + y * gdk_pixbuf_get_rowstride(picture);
        for (int x = 0; x < side.width; ++x, row += gdk_pixbuf_get_n_channels(picture)) {
            side.levels.insert(side.levels.end(), {row[2], row[1], row[0]});
        }
    }
    g_object_unref(loader);
    return side;
}

Side takeOli(Pieces& pieces, int bits, bool fromBottom) {
    const std::string header = pieces.at(0);
    EXPECT_TRUE(header.size() == 12 && header[0] == 1 && header[6] == ' ') << header;
    EXPECT_TRUE(pieces.at(1).size() == 2 && pieces.at(1)[0] == 2);
    Side side{std::stoi(header.substr(1)), std::stoi(header.substr(7))};
    std::string data;
    std::size_t i = 2;
    for (; i < pieces.size() && pieces[i].size() != 6; ++i) {
        data += pieces[i];
    }
    EXPECT_EQ(data.size(), static_cast<std::size_t>(side.width * side.height * bits / 8));
    EXPECT_EQ(pieces.at(i), "\x03" + header.substr(7));
    pieces.erase(pieces.begin(), pieces.begin() + static_cast<std::ptrdiff_t>(i) + 1);

    const int size = std::min(bits, 8);
    for (int y = 0; y < side.height; ++y) {
        const int row = fromBottom ? side.height - 1 - y : y;
        for (int i3 = 0; i3 < side.width * 3; ++i3) {
            const int at = row * side.width * bits + (bits == 24 ? i3 * 8 : i3 / 3 * bits);
            const auto byte = static_cast<std::size_t>(at / 8);
            // A last bit or two that fill no byte aren't sent.
            const int value = byte < data.size() ? static_cast<std::uint8_t>(data[byte]) >> (8 - size - at % 8) : 0;
            const int most = (1 << size) - 1;
            side.levels.push_back(byte < data.size() ? (value & most) * 255 / most : -1);
        }
    }
    return side;
}

void expectShows(const Side& side, const Picture& picture, const Finer& finer, int bits) {
    ASSERT_EQ(side.width, picture.width * finer.halves / 2);
    ASSERT_EQ(side.height, picture.height * finer.halves / 2);
    const int most = (1 << std::min(bits, 8)) - 1;
    for (std::size_t i = 0; i < side.levels.size(); ++i) {
        const int pixel = static_cast<int>(i / 3);
        const int x = pixel % side.width * 2 / finer.halves;
        const int y = pixel / side.width * 2 / finer.halves;
        const int nearest = (picture.at(x, y).at(i % 3) * most * 2 + 255) / 510;
        if (side.levels[i] >= 0) {
            ASSERT_EQ(side.levels[i], nearest * 255 / most) << x << ',' << y;
        }
    }
}

TEST(Scan, EverySideArrivesAsAskedInEveryBlockSize) {
    for (const Family family : {Family::kOki, Family::kOli}) {
        for (std::size_t round = 0; round < 96; ++round) {
            const Kind& kind = kKinds[round % 4];
            const Finer& finer = kFiner[round / 4 % 4];
            const bool fromBottom = round % 3 == 0;
            const std::array<bool, 2> wanted{round % 5 != 0, round % 5 != 1};
            const int width = static_cast<int>(1 + round * 7 % 50);
            const std::array<Picture, 2> pictures{Picture{width, 17, 3, kind.bits == 24}, Picture{width + 1, 5, 90, kind.bits == 24}};
            Scenario scenario{.family = family};
            scenario.scan.sides = {pictures[0].document(), pictures[1].document()};
            constexpr std::array<std::size_t, 6> kLarge{1792, 2040, 2047, 2056, 4095, 16384};
            scenario.scan.block = round < 60 ? 1 + round : kLarge[round % kLarge.size()];
            SCOPED_TRACE(testing::Message() << (family == Family::kOki ? "oki " : "oli ") << round);
            Bench bench(scenario);
            bench.send(scanCommands(family, kind, wanted, finer.code, fromBottom));
            Pieces pieces = piecesOf(bench);
            for (std::size_t i = 0; i < 2; ++i) {
                if (!wanted[i]) {
                    const std::string none{5, static_cast<char>(i + 1), 2, 0, 0, 0, 0, 0};
                    if (family == Family::kOki) {
                        ASSERT_EQ(pieces.at(0), none) << "a header without data, and no end";
                        pieces.erase(pieces.begin());
                    }
                    continue;
                }
                const auto take = family == Family::kOki ? takeOki : takeOli;
                expectShows(take(pieces, kind.bits, fromBottom), pictures[i], finer, kind.bits);
            }
            EXPECT_TRUE(pieces.empty());
            EXPECT_EQ(bench.last("scan").at("what"), "delivered");
        }
    }
}

TEST(Scan, GoesWrongAsOrdered) {
    // 40 x 10 greys in blocks of 100; as a file 1078 bytes more.
    const auto scan = [](Family family, ScanScenario scenario) {
        scenario.sides[0] = Picture{40, 10, 0, false}.document();
        scenario.block = 100;
        Bench bench({.family = family, .scan = scenario});
        bench.send(scanCommands(family, kKinds[2], {true, false}));
        return piecesOf(bench);
    };
    const Pieces oki = scan(Family::kOki, {});
    const Pieces oli = scan(Family::kOli, {});
    ASSERT_EQ(oki.size(), 15U + 1 + 1) << "data, end, and the other side's header";
    ASSERT_EQ(oli.size(), 2U + 4 + 1);

    EXPECT_EQ(scan(Family::kOki, {.silent = true}), Pieces{});
    EXPECT_EQ(scan(Family::kOki, {.breakAfter = 250}), (Pieces{oki[0], oki[1], oki[2].substr(0, 50)}));
    EXPECT_EQ(scan(Family::kOli, {.breakAfter = 0}), (Pieces{oli[0], oli[1]}));
    EXPECT_EQ(scan(Family::kOki, {.sizeError = -1})[0].substr(4, 4), "\xC5\x05\0\0"s);
    EXPECT_EQ(scan(Family::kOli, {.sizeError = 2})[0],
              "\x01"
              "00040 00012");
    EXPECT_EQ(scan(Family::kOli, {.rowsError = -3}).back(),
              "\x03"
              "00007");
    EXPECT_EQ(scan(Family::kOki, {.noEnd = true}).size(), oki.size() - 1);
    EXPECT_EQ(scan(Family::kOli, {.noEnd = true}), Pieces(oli.begin(), oli.end() - 1));
    const Pieces filled = scan(Family::kOki, {.fillers = true});
    ASSERT_EQ(filled.size(), oki.size() + 14);
    EXPECT_EQ(std::count(filled.begin(), filled.end(), std::string(8, '\0')), 14);
    EXPECT_EQ(filled[1].size(), 8U) << "never before the first block";
}

TEST(Scan, ShowsThePageAndEndsWithIt) {
    Bench bench({.pageWidthDots = 40, .pageHeightDots = 30});
    bench.send(columnAt(2, 4, "\x01\0\0"s) + columnAt(40, 4, "\x01\0\0"s));
    EXPECT_EQ(bench.ask("\033}SE\0\033}-\033-"s), "\033S\0\0\0\0\0\0\0\0\0\0"s);
    const std::string scanBoth = scanCommands(Family::kOli, kKinds[2], {true, true});
    bench.send(scanBoth);
    Pieces pieces = piecesOf(bench);
    const Side front = takeOli(pieces, 8, false);
    ASSERT_EQ(front.levels.size(), 3U * 40 * 30) << "the paper, without what fell beside it";
    EXPECT_EQ(front.levels[3 * (3 * 40 + 3)], 0);
    EXPECT_EQ(std::count(front.levels.begin(), front.levels.end(), 255), 3 * (40 * 30 - 1));
    EXPECT_EQ(takeOli(pieces, 8, false).levels, std::vector<int>(3 * 40 * 30, 255));

    // An answer waits behind the scan; a scan begun anew or without its document is no more delivered.
    bench.send(scanBoth);
    const std::string first = bench.answer();
    bench.send("\033j" + scanBoth);
    EXPECT_EQ(bench.answer(), "\033rP");
    EXPECT_EQ(bench.answer(), first);
    bench.send("\033O");
    EXPECT_FALSE(bench.printer.answerPending());
    EXPECT_EQ(bench.last("scan").at("what"), "ended");
    bench.send(scanBoth);
    EXPECT_FALSE(bench.printer.answerPending());
    EXPECT_EQ(bench.last("no-paper").at("name"), "scan-sides");
}

TEST(Scan, RefusesWhatMeansNothing) {
    for (const char* command : {"\033YP\x18\xAA", "\033YP\x58\x2A", "\033}Pxa\1\1\1\1\033Z"}) {
        Bench bench;
        bench.send(command);
        EXPECT_EQ(bench.count("bad-value"), 1) << command;
    }
    // Twice as large as the messages can tell of, and larger than a header can.
    for (const auto& [family, size] : {std::pair(Family::kOli, 40000), {Family::kOki, 65535}}) {
        Bench bench({.family = family, .scan = {.sides = {Picture{size, size, 0, true}.document()}}});
        bench.send(scanCommands(family, kKinds[3], {true, false}, family == Family::kOki ? 3 : 1));
        EXPECT_EQ(piecesOf(bench).size(), family == Family::kOki ? 2U : 0U);
    }
}

TEST(Scan, IsMadeWhileItIsTaken) {
    int rows = 0;
    Scenario scenario{.family = Family::kOki};
    scenario.scan.sides[0] = {1000, 60000, [&rows](int, std::span<std::uint8_t>) { ++rows; }};
    Bench bench(scenario);
    bench.send(scanCommands(Family::kOki, kKinds[3], {true, false}));
    EXPECT_EQ(rows, 0);
    for (int i = 0; i < 10; ++i) {
        (void)bench.answer();
    }
    EXPECT_NEAR(rows, 10 * 4095 / 3000, 2);
}

}  // namespace
}  // namespace passbook::sim
