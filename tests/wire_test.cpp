#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "wire/mask.h"
#include "wire/oki.h"
#include "wire/oli.h"

namespace passbook::wire {
namespace {

using namespace std::string_view_literals;

using Bytes = std::vector<std::uint8_t>;

/// A command on one line: name, numbers, bytes (as they are), and what is wrong with it.
std::string say(const Command& command) {
    std::string said(command.name);
    for (const int number : command.numbers)
        said += ' ' + std::to_string(number);
    if (!command.bytes.empty())
        said += " <" + std::string(command.bytes.begin(), command.bytes.end()) + '>';
    return command.note.empty() ? said : said + " (" + std::string(command.note) + ')';
}

struct Heard {
    std::vector<std::string> commands;
    std::size_t wireLength = 0;
};

/// What a decoder makes of the bytes, handed to it in two pieces.
Heard decode(Family family, std::span<const std::uint8_t> bytes, std::size_t cut = 0) {
    Heard heard;
    const CommandSink sink = [&heard](const Command& command) {
        heard.commands.push_back(say(command));
        heard.wireLength += command.wireLength;
    };
    const std::unique_ptr<Decoder> decoder = makeDecoder(family);
    decoder->feed(bytes.first(cut), sink);
    decoder->feed(bytes.subspan(cut), sink);
    decoder->finish(sink);
    return heard;
}

/// Each row, whole and cut at every place: the same commands, and every byte accounted for.
TEST(Decoder, WhatIsWrongIsReportedAndNothingElseLost) {
    constexpr auto oli = Family::oli, oki = Family::oki;
    const struct {
        Family family;
        std::string_view text;
        std::vector<std::string> commands;
    } rows[] = {
        {oli, "\0331A000abcd\0332X"sv, {"malformed-bitmap <abcd> (half a column)", "text <X>"}},
        // The host gave up inside a run and ejects.
        {oli, "\0331A000abc\033O"sv, {"malformed-bitmap <abc> (broken off by another command)", "eject"}},
        {oli, "\0331A000abc"sv, {"malformed-bitmap <abc> (no end)"}},
        // The end of a run is no command by itself, and no other head begins one.
        {oli, "\0332\0331A001"sv, {"unknown <\0332> (no such command)", "unknown <\0331A001> (no such command)"}},
        {oli, "\033t12\x1D\033"sv, {"malformed-stripe <12\x1D\033> (no end)"}},
        // Half characters: only the byte that is wrong for certain is given up.
        {oli, "A\xB4\rB"sv, {"text <A>", "unknown <\xB4> (half a character)", "carriage-return", "text <B>"}},
        {oli,
         "A\x80\x7F"sv,
         {"text <A>", "unknown <\x80> (no text and no command)", "unknown <\x7F> (no text and no command)"}},
        {oli,
         "\033zA\x1C\x1Cj"sv,
         {"unknown <\033z> (no such command)", "text <A>", "unknown <\x1C> (cut short)", "chinese-normal-width"}},
        {oki, "\033%1\0\1abc\033%1\0\2abc"sv, {"bitmap-run <abc>", "malformed-bitmap <abc> (no end)"}},
        {oki, "\033%1\0\0A\r"sv, {"bitmap-run 0", "text <A>", "carriage-return"}},
        {oki, "\033} =1\033A\033ZB"sv, {"configuration-write <1\033A\033Z>", "text <B>"}},
        {oki, "\033} =1\033"sv, {"malformed-configuration <1\033> (no end)"}},
        {oki, "\033%2\033%5"sv, {"unknown <\033%2> (no such command)", "unknown <\033%5> (cut short)"}},
    };
    for (const auto& [family, text, commands] : rows) {
        const Bytes bytes(text.begin(), text.end());
        SCOPED_TRACE(testing::PrintToString(bytes));
        for (std::size_t cut = 0; cut <= bytes.size(); ++cut) {
            const Heard heard = decode(family, bytes, cut);
            ASSERT_EQ(heard.commands, commands) << "cut at " << cut;
            ASSERT_EQ(heard.wireLength, bytes.size());
        }
    }
}

/// What is cut must not pass for a whole one when its end comes after all, nor eat memory when it never does.
TEST(Decoder, WhatIsTooLongIsCut) {
    const std::tuple<Family, std::string, std::size_t, std::string_view, std::string_view> rows[] = {
        {Family::oli, "\0331A000", OliDecoder::maxBitmap, "\0332\r", "malformed-bitmap"},
        {Family::oli, "\033t", OliDecoder::maxStripe, "\r", "malformed-stripe"},
        {Family::oki, "\033} =", OkiDecoder::maxConfiguration, "\r", "malformed-configuration"},
        {Family::oki, "", Decoder::maxText, "\r", "text"},
    };
    for (const auto& [family, head, most, end, cut] : rows) {
        const std::string text = head + std::string(2 * most, 'x') + std::string(end);
        const Heard heard = decode(family, Bytes(text.begin(), text.end()));
        EXPECT_TRUE(heard.commands.at(0).starts_with(cut) && heard.commands[0].size() < most + 40) << cut;
        EXPECT_EQ(heard.commands.back(), "carriage-return") << cut;
    }
}

/// What a trace shows of customers: nothing. Of commands and answers: everything.
TEST(Masker, HidesDataAndNothingElse) {
    constexpr auto oli = Family::oli, oki = Family::oki;
    enum class By { host, printer, callEnds };
    struct Said {
        By by;
        std::string_view text = {}, masked = text;
    };
    using enum By;
    const std::tuple<Family, std::vector<Said>> rows[] = {
        {oli, {{host, "\033/10042Li \xC1\xD6\r\0331A000abc\0332"sv, "\033/10042*****\r\0331A000abc\0332"sv}}},
        // What ends a stripe is only itself where it does.
        {oli, {{host, "\033tA\x1D\x1D\033B\\\x1D\033\\\033Oname"sv, "\033t*\x1D\x1D\033**\x1D\033\\\033O****"sv}}},
        {oki, {{host, "\033%1\0\1abcname\r\033} =x\033Z"sv, "\033%1\0\1abc****\r\033} =x\033Z"sv}}},
        // The line took half of a command, and the host gave up.
        {oli, {{host, "\033t"sv}, {callEnds}, {host, "\033O\033j"sv}}},
        {oli,
         {{host, "\033]"sv},
          {printer, "\033"sv},
          {printer, "]42"sv, "]**"sv},
          {printer, "17\x1C\033rP"sv, "**\x1C\033rP"sv}}},
        // An answer that comes when nobody waits any more, behind another one; and one of a printer with another head.
        {oli, {{host, "\033]"sv}, {printer, "\033rP\033]42"sv, "\033rP\033]**"sv}}},
        {oli, {{host, "\033]"sv}, {printer, "xy42"sv, "xy**"sv}}},
        {oli, {{host, "\033]"sv}, {callEnds}, {host, "\033j\033 b"sv}, {printer, "\033rP\033bFW10"sv}}},
        {oki,
         {{host, "\033}D"sv},
          {printer, "\5\1\2\0\4\0\0\0BM"sv, "\5\1\2\0\4\0\0\0**"sv},
          {printer, "\5dots"sv, "*****"sv},
          {printer, "\6"sv},
          {printer, "\5\2\2\0\0\0\0\0"sv}}},
        {oli,
         {{host, "\033}Paq\0\0\0\0\033Z"sv},
          {printer, "\00100010 00020"sv},
          {printer, "\2F"sv},
          {printer, "\3dots!"sv, "******"sv},
          {printer, "\00300020"sv},
          {printer, "\033rP"sv}}},
    };
    for (const auto& [family, dialogue] : rows) {
        Masker masker(family);
        for (const auto& [by, text, masked] : dialogue) {
            Bytes bytes(text.begin(), text.end());
            if (by == printer)
                masker.answer(bytes);
            else if (by == callEnds)
                masker.endCall(false, false);
            for (std::size_t i = 0; by == host && i < bytes.size(); ++i)
                masker.send(std::span(bytes).subspan(i, 1));
            EXPECT_EQ(std::string(bytes.begin(), bytes.end()), masked);
        }
    }
}

}  // namespace
}  // namespace passbook::wire
