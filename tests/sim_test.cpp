#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/sim_bench.h"

namespace passbook::sim {
namespace {

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

}  // namespace
}  // namespace passbook::sim
