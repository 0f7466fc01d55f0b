// Texts on their way to the printer, and bytes of any kind on their way into it.
#include <glib.h>

#include <algorithm>
#include <memory>
#include <set>

#include "api/passbook.h"
#include "fuzz/line.h"
#include "fuzz/target.h"
#include "sim/event_json.h"
#include "wire/mask.h"
#include "wire/oki.h"
#include "wire/oli.h"

namespace passbook::fuzz {

using sim::Family;

namespace {

/// What the printer gets for a text; nothing when it is none. A character that is cut off at the end is left out; there
/// are such beginnings of which it is a matter of opinion whether a character has them.
bool converted(const Exact& text, std::string& bytes, bool& isCut) {
    const char* end = nullptr;
    if (g_utf8_validate(text.bytes.get(), text.length, &end) == FALSE) {
        const std::string tail(end, static_cast<std::size_t>(text.bytes.get() + text.length - end));
        isCut = g_utf8_get_char_validated(tail.data(), static_cast<gssize>(tail.size())) == static_cast<gunichar>(-2);
        if (!isCut)
            return false;
    }
    gsize written = 0;
    gchar* const result =
        g_convert(text.bytes.get(), end - text.bytes.get(), "GB18030", "UTF-8", nullptr, &written, nullptr);
    if (result != nullptr)
        bytes.assign(result, written);
    g_free(result);
    return result != nullptr;
}

std::string namesOf(Family family, std::span<const std::uint8_t> bytes) {
    std::string names;
    const auto decoder = wire::makeDecoder(family);
    const auto note = [&](const wire::Command& command) {
        names += command.name;
        names += ' ' + std::to_string(command.bytes.size()) + '\n';
    };
    decoder->feed(bytes, note);
    decoder->finish(note);
    return names;
}

/// What a printer makes of bytes that come in pieces of that size.
std::string lifeOf(const sim::Scenario& scenario, std::string_view bytes, std::size_t piece, bool seen) {
    std::string life;
    sim::Printer printer(scenario, [&](const sim::Event& event) { life += sim::toJson(event).dump() + '\n'; });
    for (std::size_t at = 0; at < bytes.size(); at += piece) {
        const Exact part(bytes.substr(at, piece));
        printer.receive({part.octets(), static_cast<std::size_t>(part.length)});
    }
    printer.finish();
    for (int reads = 0; printer.answerPending() && reads < 2000; ++reads)
        life += std::to_string(printer.takeAnswer().size()) + ' ';
    if (seen && printer.page() != nullptr)
        require(!printer.page()->render().empty(), "there is a page to look at");
    return life;
}

/// The bytes that the driver sends for a day's work.
std::string dayOf(Family family) {
    Desk desk({.family = family, .pageWidthDots = 30, .pageHeightDots = 30});
    const std::string text = "对账单 100.00\n", picture = fileOf("seed.bmp");
    tests::writeFile(picture, tests::inkedPicture(70, 20, {0, 5}, {0, 3, 66}).bmp(1, true));
    if (family == Family::oki) {
        (void)PT_PrintTxtStream("line", 0, 1, 10, 10, text.c_str(), -1);
        desk.connect();
        (void)PT_PrintImageFile("line", 0, 1, 10, 10, 0, picture.c_str());
        desk.connect();
        (void)PT_Eject("line", 0);
        return desk.sent;
    }
    (void)YARDO_PR2_InitPrinter(2, 1);
    (void)YARDO_PR2_SetFormat(12, 1, 1, 1);
    (void)YARDO_PR2_SetUnderLine(1);
    (void)YARDO_PR2_PrintData(0, 1, 1, text.c_str(), -1);
    (void)YARDO_PrintBmpOLI(picture.c_str(), false, 0, 0);
    (void)YARDO_PR2_MSW(0, "6222", 4);
    (void)YARDO_PR2_EjectPaper();
    return desk.sent;
}

}  // namespace

void printText(Input input) {
    const int way = input.upTo(3), x = input.byte(), y = input.byte();
    const Exact text(input.rest());
    const Family family = way < 2 ? Family::oli : Family::oki;
    Script script("", false);
    const int result = way == 0   ? YARDO_PR2_PrintData(0, x, y, text.bytes.get(), text.length)
                       : way == 1 ? passbook_print_text(x, y, text.bytes.get(), text.length)
                       : way == 2 ? PT_PrintTxtStream("line", x % 2, 1, x, y, text.bytes.get(), text.length)
                                  : passbook_oki_print_text("line", 1, x, y, text.bytes.get(), text.length);
    if (x > 211 || std::find(text.bytes.get(), text.bytes.get() + text.length, '\0') != text.bytes.get() + text.length)
        return;
    std::string bytes;
    bool isCut = false;
    const bool isText = converted(text, bytes, isCut);
    require((isText && result == 0) || ((!isText || isCut) && result == (family == Family::oli ? -60 : -1)),
            "what is no text is refused, and nothing else: " + std::to_string(result));
    if (result != 0)
        return;
    if (family == Family::oli) {
        require(script.sent.ends_with(bytes + "\r"), "the text is sent whole");
        return;
    }
    std::size_t from = 0;
    for (std::size_t at = 0, line = 0; at < bytes.size(); ++line) {
        const std::size_t end = std::min(bytes.find('\n', at), bytes.size());
        if (end == at && line > 0)
            break;  // an empty line ends the text
        from = script.sent.find(bytes.substr(at, end - at), from);
        require(from != std::string::npos, "every line is sent, in its turn");
        from += end - at;
        at = end + 1;
    }
}

void decodeWire(Input input) {
    const int how = input.byte();
    const Family family = how % 2 == 0 ? Family::oli : Family::oki;
    sim::Scenario scenario{.family = family,
                           .pageWidthDots = 120,
                           .pageHeightDots = 120,
                           .split = static_cast<std::size_t>((how & 2) != 0 ? 3 : 0),
                           .silent = (how & 4) != 0,
                           .garble = (how & 8) != 0};
    const std::string_view bytes = input.rest();
    const std::size_t piece = 1 + static_cast<std::size_t>(how >> 4 & 7);
    const std::string whole = lifeOf(scenario, bytes, std::max<std::size_t>(1, bytes.size()), false);
    const bool seen = (how & 128) != 0;  // text is drawn then, which takes its time
    require(lifeOf(scenario, bytes, piece, seen) == whole, "pieces make no difference");

    std::vector<std::uint8_t> masked(bytes.begin(), bytes.end());
    const std::string names = namesOf(family, masked);
    wire::Masker masker(family);
    for (std::size_t at = 0; at < masked.size();) {
        const std::size_t count = std::min(piece, masked.size() - at);
        masker.send(std::span(masked).subspan(at, count));
        at += count;
    }
    // Half a character is no text, until it is masked.
    if (names.find("unknown") == std::string::npos)
        require(namesOf(family, masked) == names, "what is masked decodes as before");
    masker.answer(masked);
}

Texts textSeeds() {
    Texts seeds;
    for (const char* text :
         {"100.00", "对账单 100.00", "第一行\nA\n\nno more", "\xE5\xAF", "a\xFF", "€ 𠀀 ﷺ", "\033O\x0C", "\n"})
        for (const char way : {'\0', '\1', '\2', '\3'})
            seeds.push_back(std::string{way, '\x10', '\x20'} + text);
    return seeds;
}

Texts wireSeeds() {
    Texts seeds;
    for (const char how : {'\0', '\x20', '\6'})
        seeds.push_back(how + dayOf(Family::oli));
    for (const char how : {'\1', '\x31', '\xB'})
        seeds.push_back(how + dayOf(Family::oki));
    for (const auto table : {wire::oliTable(), wire::okiTable()}) {
        std::string all(1, static_cast<char>(seeds.size() % 2));
        for (const wire::Row& row : table)
            (all += row.fixed).append(row.width, '1');
        seeds.push_back(all);
    }
    return seeds;
}

Texts wireWords() {
    Texts words = {"\033Z", "\0332", "\x1D\033\\", "\xB0\xA1", "\x81\x30\x81\x30", "\xE4\xBD\xA0"};
    for (const auto table : {wire::oliTable(), wire::okiTable()})
        for (const wire::Row& row : table)
            words.emplace_back(row.fixed);
    return words;
}

}  // namespace passbook::fuzz
