#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "tests/sim_bench.h"

namespace passbook::sim {
namespace {

using namespace std::chrono_literals;
using namespace std::string_view_literals;

TEST(PaperSlot, AHostSeesTheDocumentComeAndGo) {
    Bench prompt;
    EXPECT_EQ(prompt.ask("\033 B\033O\033 B\033L000\033 B\f\033 B"), "\033B5C\033Z\033B5@\033Z\033B5C\033Z\033B5@\033Z");

    Bench bench({.paper = PaperState::kNone, .habits = {2s, 3s}});
    const auto at = [&bench](std::chrono::milliseconds now) {
        bench.printer.advance(now);
        return bench.paperByte();
    };
    EXPECT_EQ(at(0s), '@');
    EXPECT_EQ(at(2999ms), '@');
    EXPECT_EQ(at(3s), 'B');
    EXPECT_EQ(bench.printer.page(), nullptr) << "at the entry nothing can be printed";
    bench.send("\033L000");
    EXPECT_EQ(bench.paperByte(), 'C');
    bench.send("A\r\033O");
    EXPECT_EQ(bench.paperByte(), 'A');
    EXPECT_EQ(bench.ejectedBlank, std::vector<bool>{false});
    EXPECT_EQ(at(5s), '@');
    // One long step: inserted at eight seconds, whatever the time is now.
    EXPECT_EQ(at(100s), 'B');
    EXPECT_EQ(bench.printer.nextChange(), kNever);
    bench.send("\033L000\033O");
    EXPECT_EQ(bench.ejectedBlank, (std::vector<bool>{false, true})) << "a new document is a new page";
    EXPECT_EQ(bench.printer.nextChange(), 102s);
}

TEST(PaperSlot, WaitsForADocumentUntilOneComesOrTheHostGivesUp) {
    Bench bench({.paper = PaperState::kNone, .habits = {kNever, kNever}});
    bench.send("\033L000A\r\0331A000abc\0332\033 B");
    EXPECT_EQ(bench.answer(), "\033B5@\033Z") << "it goes on answering";
    EXPECT_EQ(bench.count("no-paper"), 2) << "the text and the run could not be printed";
    EXPECT_TRUE(bench.printer.insertDocument());
    EXPECT_EQ(bench.paperByte(), 'C');
    EXPECT_FALSE(bench.printer.insertDocument() || bench.printer.takeDocument()) << "the printer holds it";
    bench.send("\033O");
    EXPECT_EQ(bench.ejectedBlank, std::vector<bool>{true});
    bench.printer.advance(std::chrono::hours(1000));
    EXPECT_EQ(bench.paperByte(), 'A');
    // What a host sends when nobody takes the document: it stays, and nothing waits for a new one.
    EXPECT_EQ(bench.ask("\033}0P\033L000\033 B\033j\f"), "\033B5A\033Z\033rP");
    EXPECT_TRUE(bench.printer.takeDocument() && bench.printer.insertDocument());
    EXPECT_EQ(bench.paperByte(), 'B');
    EXPECT_TRUE(bench.printer.takeDocument());
    bench.send("\f");
    EXPECT_EQ(bench.count("no-paper"), 2) << "a form feed may come to an empty slot";
    bench.send("\033O");
    EXPECT_EQ(bench.last("no-paper").at("name"), "eject");
}

TEST(Answers, NameTheStateTheyWereAskedFor) {
    const std::string statusBytes = "PQTXabdh1248qrp";
    for (int status = 1; status <= 15; ++status) {
        Bench bench({.printerStatus = status});
        EXPECT_EQ(bench.ask("\033j"), "\033r"s + statusBytes[static_cast<std::size_t>(status) - 1]);
    }
    Bench bench({.firmware = "0123456789ABCDE"});
    const std::string firmware = bench.ask("\033l\033 b");
    EXPECT_EQ(firmware.size(), 17U);
    EXPECT_TRUE(firmware.starts_with("\033b0123456789ABC\033"));
}

TEST(Answers, OfTheOkiFamilyTellAboutTheDocumentAndTheSettings) {
    constexpr std::string_view kQuestions = "\033}SS\033}S-\033}SL";
    Bench bench({.family = Family::kOki, .habits = {0ms, 1s}, .pageWidthDots = 900, .paperLength = 1500});
    EXPECT_EQ(bench.ask(kQuestions), "\033S\0\0\033-1270\033L1500"s);
    bench.send("A\r\033%5\x10\r\f");
    EXPECT_EQ(bench.ask(kQuestions), "\033S\1\0\033-0000\033L0000"s);
    EXPECT_EQ(bench.last("paper").at("status"), 2);
    bench.printer.advance(1s);
    EXPECT_EQ(bench.last("paper").at("what"), "fed-in") << "nobody has to ask for it";
    EXPECT_EQ(bench.ejectedBlank, std::vector<bool>{false});

    // By default there is always a document; one that was taken away at the start stays away.
    EXPECT_EQ(Bench({.family = Family::kOki}).ask("\f\033}SS"), "\033S\0\0"s);
    EXPECT_EQ(Bench({.family = Family::kOki, .paper = PaperState::kNone}).ask("\033}SS"), "\033S\1\0"s);

    const std::string factory = bench.ask("\033} a\007");
    EXPECT_TRUE(factory.starts_with("\033a8F") && factory.ends_with("\033Z")) << factory;
    EXPECT_EQ(bench.ask("\033} =new\033Z\033} a\007"), "\033 =0new\033Z");
    Bench refusing({.family = Family::kOki, .configurationResult = 2});
    EXPECT_EQ(refusing.ask("\033} =new\033Z\033} a\007"), "\033 =2" + factory);
}

TEST(Answers, TheStripeReadsBackWhatWasWritten) {
    Bench bench({.stripes = {"123", ""}});
    EXPECT_EQ(bench.ask("\033YE@@\033]\033YEA@\033]"), "\033]123\x1C\033]\x1C");
    EXPECT_EQ(bench.ask("\033t777=8\x1D\033\\\033]\033YE@@\033]"), "\033]777=8\x1C\033]123\x1C");
    bench.send("\033t" + std::string(kMaxStripeData + 1, '5') + "\x1D\033\\");
    EXPECT_EQ(bench.last("stripe").at("what"), "refused");
    EXPECT_EQ(bench.printer.stripe(0), "123");
}

TEST(Faults, ChangeTheAnswersAsAsked) {
    const std::string questions = "\033j\033 B";
    const std::string right = Bench().ask(questions);

    Bench inPieces({.split = 2});
    inPieces.send(questions);
    std::vector<std::string> pieces;
    while (inPieces.printer.answerPending()) {
        pieces.push_back(inPieces.answer());
    }
    EXPECT_EQ(pieces, (std::vector<std::string>{"\033r", "P", "\033B", "5C", "\033Z"}));

    const std::string wrong = Bench({.garble = true}).ask(questions);
    ASSERT_EQ(wrong.size(), right.size());
    for (std::size_t i = 0; i < right.size(); ++i) {
        EXPECT_NE(wrong[i], right[i]);
    }

    Bench mute({.silent = true});
    EXPECT_EQ(mute.ask(questions), "");
    EXPECT_EQ(mute.last("answer-lost").at("note"), "silent");

    // A host that never listens costs no more than so much memory.
    Bench unheard;
    for (int i = 0; i < 30000; ++i) {
        unheard.send("\033j");
    }
    EXPECT_LE(unheard.answer().size(), 64U * 1024);
    EXPECT_EQ(unheard.last("answer-lost").at("to"), "printer-status");
    EXPECT_EQ(unheard.ask("\033j"), "\033rP") << "it can be asked again once it has listened";
}

TEST(Session, IsTheSameInWhateverPiecesItArrives) {
    const std::string session = "\x18\033\007E\033l\033L000\033&46\033a3\033/10400\033|A020\xB4\xE6\xBF\xEE 12.50\r" +
                                columnAt(9, 40, "\x01\x02\x03") + "\033YEA@\033t12\x1D\033\\\033]\033zoops\033O\033 B";
    Bench whole;
    whole.send(session);
    const std::string answers = whole.answer();
    const std::vector<std::uint8_t> picture = whole.printer.ejectedPage()->png();
    EXPECT_FALSE(picture.empty());
    for (std::size_t size = 1; size <= 7; ++size) {
        Bench pieces;
        for (std::size_t begin = 0; begin < session.size(); begin += size) {
            pieces.send(session.substr(begin, size));
        }
        EXPECT_EQ(pieces.events, whole.events) << size;
        EXPECT_EQ(pieces.answer(), answers);
        EXPECT_EQ(pieces.printer.ejectedPage()->png(), picture);
    }
}

TEST(Session, SurvivesWhateverIsSent) {
    constexpr std::string_view kLikely("\033\033\033\x1C\007|A/1&aw*+LlO0134YE@t\\]2 Bbj}P\r\n\f\x81\x30\xB4\xE6"sv);
    std::mt19937 random(7);
    Bench bench;
    for (int i = 0; i < 60000; ++i) {
        const auto byte = random() % 5 == 0 ? static_cast<char>(random()) : kLikely[random() % kLikely.size()];
        bench.send({&byte, 1});
        if (i % 100 == 0) {
            (void)bench.answer();
            bench.send("\033L000");  // or nothing would ever be drawn after the first ejection
        }
    }
    bench.printer.finish();
    for (const nlohmann::json& event : bench.events) {
        EXPECT_TRUE(event.contains("event"));
        EXPECT_FALSE(event.dump(-1, ' ', false, nlohmann::json::error_handler_t::strict).empty());
    }
}

}  // namespace
}  // namespace passbook::sim
