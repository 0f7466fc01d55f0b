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

}  // namespace
}  // namespace passbook::sim
