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
    for (const int number : command.numbers) {
        said += ' ' + std::to_string(number);
    }
    if (!command.bytes.empty()) {
        said += " <" + std::string(command.bytes.begin(), command.bytes.end()) + '>';
    }
    return command.note.empty() ? said : said + " (" + std::string(command.note) + ')';
}

struct Heard {
    std::vector<std::string> commands;
    std::size_t wireLength = 0;
    std::size_t longest = 0;
};

// What a decoder makes of the bytes, handed to it in pieces that end at the given places.
Heard decode(Family family, std::span<const std::uint8_t> bytes, const std::vector<std::size_t>& cuts = {}) {
    Heard heard;
    const CommandSink sink = [&heard](const Command& command) {
        heard.commands.push_back(say(command));
        heard.wireLength += command.wireLength;
        heard.longest = std::max(heard.longest, command.bytes.size());
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

TEST(OliDecoder, Commands) {
    check(Family::kOli,
          {
              {"\033|A066\033/19996\033&28\r\n\f"sv,
               {"horizontal-position 66", "vertical-position 9996", "line-space 28", "carriage-return", "line-feed", "form-feed"}},
              {"\033a1\033a8\033a\0\033(\033)\033w1"sv, {"pitch 49", "pitch 56", "pitch 0", "bold-on", "bold-off", "font-height 49"}},
              {"\0333\x1Cj\0334\x1Ch\033*0\033*3\033*4\033+"sv,
               {"latin-normal-width", "chinese-normal-width", "latin-double-width", "chinese-double-width", "underline-on 48",
                "underline-on 51", "underline-on 52", "underline-off"}},
              {"\033l\033L000\033O\0330\a\033j\033 B\033 b"sv,
               {"clear-error", "feed-in 0", "eject", "clear-all", "bell", "printer-status", "paper-status", "firmware"}},
              {"\033YE@@\033]\033YEA@\033t12=34\x1D\033\\\033t\x1D\x1D\033[\x1D\033\\\r"sv,
               {"stripe-select 0", "stripe-read", "stripe-select 1", "stripe-write <12=34>", "stripe-write <\x1D\x1D\033[>",
                "carriage-return"}},
              // What a host sends to set the printer up, and when nobody takes the document.
              {"\x18\033\007E\x08\0330"sv, {"cancel", "setting-BEL-E", "backspace", "clear-all"}},
              {"\033n\033.\033l\033Q080\033Z\033J000\033T070\033&46\033#1\x1C&\x1Cg0"sv,
               {"setting-n", "setting-.", "clear-error", "setting-Q 80", "setting-Z", "setting-J 0", "setting-T 70", "line-space 46",
                "setting-# 1", "setting-FS-&", "setting-FS-g 0"}},
              {"\033R003\033S5\033[010\033}0P\033L000\033j\f"sv,
               {"setting-R 3", "setting-S 5", "setting-[ 10", "setting-}0P", "feed-in 0", "printer-status", "form-feed"}},
              {"\033}SE\0\033}-\033-\033YP\x57\xCC\033}P\033q\0\0\0\x41\033ZA"sv,
               {"scan-announcement", "scan-preparation 0", "scan-preparation 1", "scan-mode 87 204", "scan-sides 27 113 0 0 0 65",
                "text <A>"}},
              {"\033!G1\0331A000\x03\x02\x80\x00\x0A\x0D\0332\0331A000\0332"sv,
               {"graphics-mode", "bitmap-run <\x03\x02\x80" + std::string("\0\n\r", 3) + ">", "bitmap-run"}},
              // The trail byte of the second character is a backslash, that of the third a vertical bar.
              {"AB~ \xB4\xE6\x81\x5C\x81\x7C\033O"sv, {"text <AB~ \xB4\xE6\x81\x5C\x81\x7C>", "eject"}},
              {"\x81\x30\x84\x31\0677\r"sv, {"text <\x81\x30\x84\x31\0677>", "carriage-return"}},
          });
}

TEST(OliDecoder, WhatIsWrongIsReportedAndNothingElseLost) {
    check(
        Family::kOli,
        {
            {"\0331A000abcd\0332X"sv, {"malformed-bitmap <abcd> (half a column)", "text <X>"}},
            // The host gave up inside a run and ejects.
            {"\0331A000abc\033O"sv, {"malformed-bitmap <abc> (broken off by another command)", "eject"}},
            {"\0331A000abc"sv, {"malformed-bitmap <abc> (no end)"}},
            {"\0331A000abc\033"sv, {"malformed-bitmap <abc> (no end)"}},
            // The end of a run is no command by itself, and no other head begins one.
            {"\0332\0331A001"sv, {"unknown <\0332> (no such command)", "unknown <\0331A001> (no such command)"}},
            {"\033t12\x1D\033"sv, {"malformed-stripe <12\x1D\033> (no end)"}},
            // Half characters: only the byte that is wrong for certain is given up.
            {"A\xB4\rB"sv, {"text <A>", "unknown <\xB4> (half a character)", "carriage-return", "text <B>"}},
            {"\x81\x30\033O"sv, {"unknown <\x81> (half a character)", "text <0>", "eject"}},
            {"\x81\x30\x81\x41"sv, {"unknown <\x81> (half a character)", "text <0\x81\x41>"}},
            {"A\x81\x30\x81"sv, {"text <A>", "unknown <\x81\x30\x81> (half a character)"}},
            {"A\x80\x7F"sv, {"text <A>", "unknown <\x80> (no text and no command)", "unknown <\x7F> (no text and no command)"}},
            {"\033zA\x1C\x1Cj"sv, {"unknown <\033z> (no such command)", "text <A>", "unknown <\x1C> (cut short)", "chinese-normal-width"}},
            {"\033\033O\033|A0x6"sv, {"unknown <\033> (cut short)", "eject", "unknown <\033|A0x> (no such command)", "text <6>"}},
            {"\033|A06\xB4\xE6\033&-1"sv,
             {"unknown <\033|A06> (cut short)", "text <\xB4\xE6>", "unknown <\033&-> (no such command)", "text <1>"}},
            {"\033}Paaaaaa\033O\033}P123456Z"sv,
             {"unknown <\033}Paaaaaa\033O> (no such command)", "unknown <\033}P123456Z> (no such command)"}},
            {"\033a5\033w\033*1\033YEB"sv,
             {"unknown <\033a5> (no such command)", "unknown <\033w> (cut short)", "unknown <\033*1> (no such command)",
              "unknown <\033YEB> (no such command)"}},
        });
}

TEST(OkiDecoder, CommandsAndWhatIsWrong) {
    check(Family::kOki,
          {
              // A feed, a move and data whose bytes look like commands.
              {"\033%5\x46\033%5\xFF\033%5\033\033%3\x01\x2C\033%3\033%"sv,
               {"paper-feed 70", "paper-feed 255", "paper-feed 27", "head-move 300", "head-move 6949"}},
              {"\033%1\0\x02\033%5\033%1A\x1C\033%1\0\0\033%5\x10\r\f"sv,
               {"bitmap-run <\033%5\033%1>", "text <A>", "unknown <\x1C> (no text and no command)", "bitmap-run 0", "paper-feed 16",
                "carriage-return", "form-feed"}},
              {"\033}Sl\x08\033}SF\x10\r\033}SF\x20\033}Sl\xFF"sv,
               {"setting-}Sl 8", "setting-}SF 16", "carriage-return", "setting-}SF 32", "setting-}Sl 255"}},
              {"\033}SS\033}S-\033}SL\033} a\007\033} =12\033Y\033\033ZA"sv,
               {"paper-status", "paper-width", "paper-length", "configuration-read", "configuration-write <12\033Y\033\033Z>", "text <A>"}},
              {"\xB4\xE6"
               "1\r\n"sv,
               {"text <\xB4\xE6"
                "1>",
                "carriage-return", "line-feed"}},
              {"\0\033}SM\x58\xAA\033}SDqA\x0A\x14\xC8\033\033}D"sv,
               {"no-operation", "scan-mode 88 170", "scan-sides 113 65 10 20 200 27", "scan-start"}},
              {"\033%4\033}SX\033O\a"sv,
               {"unknown <\033%4> (no such command)", "unknown <\033}SX> (no such command)", "unknown <\033O> (no such command)",
                "unknown <\a> (no text and no command)"}},
              {"\033%1\0\x02"
               "abcde"sv,
               {"malformed-bitmap <abcde> (no end)"}},
              {"\033%3\x01"sv, {"unknown <\033%3\x01> (cut short)"}},
              {"\033} =ab\033"sv, {"malformed-configuration <ab\033> (no end)"}},
          });
}

TEST(Decoder, WhatNeverEndsIsHandedOnInParts) {
    struct Endless {
        Family family;
        std::string_view head;
        std::string_view unit;
        std::string_view name;
        std::size_t bound;
    };
    for (const Endless& row : {Endless{Family::kOli, "", "A\xB4\xE6", "text", OliDecoder::kMaxText + 1},
                               Endless{Family::kOli, "\0331A000", "abc", "malformed-bitmap", OliDecoder::kMaxBitmap},
                               Endless{Family::kOki, "\033} =", "abc", "malformed-configuration", OkiDecoder::kMaxConfiguration},
                               Endless{Family::kOli, "\033t", "abc", "malformed-stripe", OliDecoder::kMaxStripe}}) {
        SCOPED_TRACE(row.name);
        Bytes bytes = bytesOf(row.head);
        while (bytes.size() < 4 * row.bound) {
            bytes.insert(bytes.end(), row.unit.begin(), row.unit.end());
        }
        const Heard heard = decode(row.family, bytes);
        EXPECT_TRUE(heard.commands.front().starts_with(row.name));
        EXPECT_EQ(heard.wireLength, bytes.size());
        EXPECT_LE(heard.longest, std::max(row.bound, OliDecoder::kMaxText + 1));
    }
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
        for (std::uint8_t& byte : bytes) {
            byte = static_cast<std::uint8_t>(random() % 4 == 0 ? random() : kLikely[random() % kLikely.size()]);
        }
        std::vector<std::size_t> cuts;
        for (std::size_t cut = 0; cut < bytes.size(); cut += 1 + random() % 5) {
            cuts.push_back(cut);
        }
        const Family family = round % 2 == 0 ? Family::kOli : Family::kOki;
        const Heard whole = decode(family, bytes);
        ASSERT_EQ(whole.commands, decode(family, bytes, cuts).commands) << testing::PrintToString(bytes);
        ASSERT_EQ(whole.wireLength, bytes.size()) << testing::PrintToString(bytes);
    }
}

}  // namespace
}  // namespace passbook::wire
