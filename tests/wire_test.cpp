#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <random>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "wire/oki.h"
#include "wire/oli.h"

namespace passbook::wire {
namespace {

using namespace std::string_view_literals;

using Bytes = std::vector<std::uint8_t>;

Bytes bytesOf(std::string_view text) { return {text.begin(), text.end()}; }

// A command on one line: name, numbers, bytes (as they are), and what is wrong with it.
std::string say(const Command& command) {
    std::string said(command.name);
    for (const int number : command.numbers) said += ' ' + std::to_string(number);
    if (!command.bytes.empty()) said += " <" + std::string(command.bytes.begin(), command.bytes.end()) + '>';
    return command.note.empty() ? said : said + " (" + std::string(command.note) + ')';
}

struct Heard {
    std::vector<std::string> commands;
    std::size_t wireLength = 0;
};

// What a decoder makes of the bytes, handed to it in pieces that end at the given places.
Heard decode(Family family, std::span<const std::uint8_t> bytes, const std::vector<std::size_t>& cuts = {}) {
    Heard heard;
    const CommandSink sink = [&heard](const Command& command) {
        heard.commands.push_back(say(command));
        heard.wireLength += command.wireLength;
    };
    const std::unique_ptr<Decoder> decoder = makeDecoder(family);
    std::size_t begin = 0;
    for (const std::size_t cut : cuts) {
        decoder->feed(bytes.subspan(begin, cut - begin), sink);
        begin = cut;
    }
    decoder->feed(bytes.subspan(begin), sink);
    decoder->finish(sink);
    return heard;
}

struct Case {
    std::string_view bytes;
    std::vector<std::string> commands;
};

// Each case, whole and cut at every place: the same commands, and every byte accounted for.
void check(Family family, const std::vector<Case>& cases) {
    for (const Case& row : cases) {
        const Bytes bytes = bytesOf(row.bytes);
        SCOPED_TRACE(testing::PrintToString(bytes));
        for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
            const Heard heard = decode(family, bytes, {cut});
            ASSERT_EQ(heard.commands, row.commands) << "cut at " << cut;
            ASSERT_EQ(heard.wireLength, bytes.size());
        }
    }
}

TEST(OliDecoder, WhatIsWrongIsReportedAndNothingElseLost) {
    check(
        Family::kOli,
        {
            {"\0331A000abcd\0332X"sv, {"malformed-bitmap <abcd> (half a column)", "text <X>"}},
            // The host gave up inside a run and ejects.
            {"\0331A000abc\033O"sv, {"malformed-bitmap <abc> (broken off by another command)", "eject"}},
            {"\0331A000abc"sv, {"malformed-bitmap <abc> (no end)"}},
            // The end of a run is no command by itself, and no other head begins one.
            {"\0332\0331A001"sv, {"unknown <\0332> (no such command)", "unknown <\0331A001> (no such command)"}},
            {"\033t12\x1D\033"sv, {"malformed-stripe <12\x1D\033> (no end)"}},
            // Half characters: only the byte that is wrong for certain is given up.
            {"A\xB4\rB"sv, {"text <A>", "unknown <\xB4> (half a character)", "carriage-return", "text <B>"}},
            {"A\x80\x7F"sv, {"text <A>", "unknown <\x80> (no text and no command)", "unknown <\x7F> (no text and no command)"}},
            {"\033zA\x1C\x1Cj"sv, {"unknown <\033z> (no such command)", "text <A>", "unknown <\x1C> (cut short)", "chinese-normal-width"}},
        });
}

TEST(Decoder, ARunTooLongDoesNotPassForAWholeOne) {
    // A run that was cut must not pass for a whole one when its end comes after all.
    const std::string run = "\0331A000" + std::string(OliDecoder::kMaxBitmap + 3, 'x') + "\0332\r";
    const Heard heard = decode(Family::kOli, bytesOf(run));
    ASSERT_EQ(heard.commands.size(), 3U);
    EXPECT_EQ(heard.commands[1], "malformed-bitmap <xxx> (too long)");
    EXPECT_EQ(heard.commands[2], "carriage-return");
}

TEST(Decoder, RandomBytesAreAllAccountedForHoweverTheyArrive) {
    // Mostly what commands are made of, so that many of them nearly come about.
    constexpr std::string_view kLikely = "\033\033\033\x1C\x1D\007|A/1&aw*+LlO0134YE@t\\]2 Bbj}P%5S-=Z\r\n\f\x81\x30\xB4\xE6"sv;
    std::mt19937 random(20261116);
    for (int round = 0; round < 400; ++round) {
        Bytes bytes(random() % 300);
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(random() % 4 == 0 ? random() : kLikely[random() % kLikely.size()]);
        std::vector<std::size_t> cuts;
        for (std::size_t cut = 0; cut < bytes.size(); cut += 1 + random() % 5) cuts.push_back(cut);
        const Family family = round % 2 == 0 ? Family::kOli : Family::kOki;
        const Heard whole = decode(family, bytes);
        ASSERT_EQ(whole.commands, decode(family, bytes, cuts).commands) << testing::PrintToString(bytes);
        ASSERT_EQ(whole.wireLength, bytes.size()) << testing::PrintToString(bytes);
    }
}

}  // namespace
}  // namespace passbook::wire
