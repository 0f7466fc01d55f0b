// The virtual printer by itself: the text and the picture of its page, and the faults it is told to have.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <png.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "sim/event_json.h"
#include "sim/printer.h"
#include "sim/program/pty_port.h"

namespace passbook::sim {
namespace {

using namespace std::string_literals;
using How = AnswerTrouble::How;

/// A printer on the bench: bytes go in as strings, and everything that comes out is kept.
struct Bench {
    explicit Bench(Scenario scenario = {})
        : printer(std::move(scenario), [this](const Event& event) { events.push_back(toJson(event)); }) {}

    void send(std::string_view bytes) { printer.receive(std::vector<std::uint8_t>(bytes.begin(), bytes.end())); }

    std::vector<nlohmann::json> events;
    Printer printer;
};

/// What text has darkened in some rows: the first column, one behind the last, and how much it is in all.
struct Ink {
    int first = maxPageWidthDots;
    int end = 0;
    int sum = 0;
};

Ink inkIn(const Page& page, int top, int bottom) {
    Ink ink;
    for (int y = top; y < bottom; ++y) {
        for (int x = 0; x < page.width(); ++x) {
            ink.sum += page.textInk(x, y);
            if (page.textInk(x, y) <= 127)
                continue;
            ink.first = std::min(ink.first, x);
            ink.end = std::max(ink.end, x + 1);
        }
    }
    return ink;
}

TEST(Text, FillsItsCells) {
    // Twenty letters, or ten Chinese characters, at 30 dots from the left: where their ink ends.
    const std::string latin(20, 'M');
    const std::string chinese = "\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA\xB9\xFA";
    const struct {
        std::string format, text;
        int widthDots, heightDots;
    } rows[] = {
        {"\033a3", latin, 240, 24},
        {"\033a8", latin, 212, 24},
        {"\033a3", chinese, 240, 24},
        {"\033a3\0334\x1Cj", latin, 480, 24},
        {"\033a3\0334\x1Ch\0333\x1Cj", latin + chinese, 480, 24},
        {"\033a3\033w2", chinese, 240, 72},
    };
    for (const auto& row : rows) {
        Bench bench;
        bench.send(row.format + "\033/10400\033|A020" + row.text + "\r");
        const Page& page = *bench.printer.page();
        SCOPED_TRACE(testing::PrintToString(row.format + row.text));
        const int bottom = 300 + row.heightDots;
        const Ink ink = inkIn(page, 300, bottom);
        EXPECT_NEAR(ink.first, 30, 5);
        EXPECT_NEAR(ink.end, 30 + row.widthDots, 5);
        EXPECT_GT(inkIn(page, bottom - row.heightDots / 3, bottom).sum, 0) << "as high as its cell";
        EXPECT_EQ(inkIn(page, 0, 300).sum + inkIn(page, bottom, page.height()).sum, 0) << "and no higher";
    }
}

TEST(Text, IsOnPaperBeforeItsEndIfSomebodyLooks) {
    const std::string text =
        "\033/10400AB\xB9\xFA"
        "C\r";
    Bench whole;
    whole.send(text);
    for (std::size_t cut = 8; cut < text.size(); ++cut) {
        Bench bench;
        bench.send(text.substr(0, cut));
        bench.printer.printWaitingText();
        EXPECT_FALSE(bench.printer.page()->blank());
        bench.send(text.substr(cut));
        EXPECT_EQ(bench.printer.page()->png(), whole.printer.page()->png()) << cut;
        EXPECT_EQ(bench.events.back(), whole.events.back());
    }
}

/// What a picture's reader gets: the dots where they are, paper and what lies beside it, the resolution.
TEST(Picture, ShowsThePage) {
    Bench bench({.pageWidthDots = 20, .pageHeightDots = 30});
    for (const std::string x : {"002", "020"})
        bench.send("\033/10004\033|A" + x + "\0331A000\x01\0\0\0332"s);
    const std::vector<std::uint8_t> file = bench.printer.page()->png();
    EXPECT_EQ(std::string(file.begin() + 37, file.begin() + 50), "pHYs\0\0\033\xAF\0\0\033\xAF\x01"s);

    png_image picture{};
    picture.version = PNG_IMAGE_VERSION;
    ASSERT_NE(png_image_begin_read_from_memory(&picture, file.data(), file.size()), 0);
    ASSERT_EQ(picture.width, 200U);
    picture.format = PNG_FORMAT_GRAY;
    std::vector<std::uint8_t> pixels(PNG_IMAGE_SIZE(picture));
    ASSERT_NE(png_image_finish_read(&picture, nullptr, pixels.data(), 0, nullptr), 0);
    const auto grey = [&](std::size_t x, std::size_t y) { return int{pixels[y * 200 + x]}; };
    EXPECT_EQ((std::vector{grey(3, 3), grey(4, 3), grey(3, 2), grey(30, 3)}), (std::vector{0, 255, 255, 0}));
    EXPECT_TRUE(grey(31, 3) > 200 && grey(31, 3) < 255) << "not paper, and no ink";
}

/// Two hosts, A and B, on one line. Each step of a script: ( and [ open it, ) and ] close it, ? and ! ask for the
/// status of the printer, and at a dot the printer has its turn.
TEST(Port, GivesAnswersToNobodyElse) {
    const std::string status = "\033rP";
    const struct {
        std::string_view script;
        std::string heardByA, heardByB;
    } rows[] = {
        {"(?.", status, ""},
        {"(?.).[.", "", ""},      // left unread
        {"(?).[.", "", ""},       // gone before the printer looked
        {"(?.)[!.", "", status},  // the next one was quick
        {"(?.).[!.].(?.", status, ""},
        {"(?.[].", status, ""},               // somebody came and went
        {"(.[.?.!.].", status + status, ""},  // they share the line
        {"([?)..", "", status},               // both came at once
        {"([?)!.].(?.", status, ""},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.script);
        Bench bench;
        if (row.script.size() % 2 == 1)
            (void)bench.printer.act(AnswerTrouble{.how = How::pieces, .size = 1});
        std::string error;
        const auto port = PtyPort::open(bench.printer, error);
        ASSERT_NE(port, nullptr) << error;
        Descriptor hosts[2];
        for (const char step : row.script) {
            Descriptor& host = hosts[std::string_view("[]!").find(step) != std::string_view::npos ? 1 : 0];
            if (step == '(' || step == '[')
                host = Descriptor(open(("/dev/" + port->name()).c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK));
            if (step == ')' || step == ']')
                host = Descriptor();
            const bool asks = step == '?' || step == '!';
            ASSERT_TRUE(asks ? writeAll(host.get(), "\033j") : step != '.' || port->serve(0));
        }
        const auto heard = [&port](const Descriptor& host) {
            std::string all;
            char byte = 0;
            pollfd queue{host.get(), POLLIN, 0};  // brings there what was sent a moment ago
            while (host.valid() && port->serve(0) && poll(&queue, 1, 0) == 1 && read(host.get(), &byte, 1) == 1)
                all += byte;
            return all;
        };
        EXPECT_EQ(heard(hosts[0]), row.heardByA);
        EXPECT_EQ(heard(hosts[1]), row.heardByB);
    }
}

/// A host that sends its next run as soon as one is printed: the line is not empty before the last one.
TEST(Port, TakesInAllThatTheLineHolds) {
    const std::string run = "\0331A000" + std::string(600, 'U') + "\0332";
    for (const int runs : {84, 1'000'000}) {
        int printed = 0;
        Descriptor host;
        Printer printer({}, [&](const Event& event) {
            EXPECT_TRUE(!isAny<event::Bitmap>(event) || ++printed == runs || writeAll(host.get(), run));
        });
        std::string error;
        const auto port = PtyPort::open(printer, error);
        ASSERT_NE(port, nullptr) << error;
        host = Descriptor(open(("/dev/" + port->name()).c_str(), O_WRONLY | O_NOCTTY));
        ASSERT_TRUE(writeAll(host.get(), run));
        ASSERT_TRUE(port->takeIn());
        EXPECT_TRUE(printed == 84 || (runs > 84 && printed < 1000)) << printed << ", and it must have an end";
    }
}

}  // namespace
}  // namespace passbook::sim
