// What goes to a printer, and what it says: texts, bytes of any kind, scans and answers. Whatever comes, the host gets a
// documented result in a time that has a bound.
#include <glib.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <set>
#include <sstream>

#include "api/passbook.h"
#include "fuzz/line.h"
#include "fuzz/target.h"
#include "status/status.h"
#include "wire/mask.h"

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
    std::size_t length = 0;
    const auto decoder = wire::makeDecoder(family);
    const auto note = [&](const wire::Command& command) {
        length += command.wireLength;
        names += command.name;
        names += ' ' + std::to_string(command.bytes.size()) + '\n';
    };
    decoder->feed(bytes, note);
    decoder->finish(note);
    require(length == bytes.size(), "every byte belongs to a command, or to what is none");
    return names;
}

/// The lines that a text has for the printer: an OLI printer gets one, on an OKI printer an empty line ends the text.
Texts linesOf(Family family, const std::string& bytes) {
    if (family == Family::oli)
        return {bytes};
    Texts lines;
    std::istringstream stream(bytes);
    for (std::string line; std::getline(stream, line) && (!line.empty() || lines.empty());)
        lines.push_back(line);
    return lines;
}

/// Ink lies in the cells of the text alone, and there is some where a letter or a digit stands.
void requireInk(const sim::Page& page, const sim::event::Text& text) {
    const auto ink = [&](int top, int bottom) {
        int dots = 0;
        for (int y = std::max(0, top); y < std::min(bottom, page.height()); ++y)
            for (int x = text.ink->left; x < std::min(text.ink->right, page.width()); ++x)
                dots += page.textInk(x, y) > 0 ? 1 : 0;
        return dots;
    };
    constexpr int around = 5;  // less than lies between two lines
    if (text.ink->bottom > page.height() || text.ink->right > page.width())
        return;
    require(ink(text.ink->top - around, text.ink->top) + ink(text.ink->bottom, text.ink->bottom + around) == 0,
            "no ink above and below a line");
    const bool letter =
        std::any_of(text.bytes.begin(), text.bytes.end(), [](std::uint8_t byte) { return g_ascii_isalnum(byte); });
    require(!letter || ink(text.ink->top, text.ink->bottom) > 0, "a letter leaves ink");
}

void printText(Input input) {
    const int how = input.upTo(7), way = how & 3, x = input.upTo(127), y = input.upTo(63);
    const Exact text(input.rest());
    const Family family = way < 2 ? Family::oli : Family::oki;
    Desk desk({.family = family, .pageWidthDots = 1000, .pageHeightDots = 600});
    const int result = way == 0   ? YARDO_PR2_PrintData(0, x, y, text.bytes.get(), text.length)
                       : way == 1 ? passbook_print_text(x, y, text.bytes.get(), text.length)
                       : way == 2 ? PT_PrintTxtStream("line", 0, 1, 10 * x, 10 * y, text.bytes.get(), text.length)
                                  : passbook_oki_print_text("line", 1, x, y, text.bytes.get(), text.length);
    if (text.view().find('\0') != std::string_view::npos)
        return;
    std::string bytes;
    bool isCut = false;
    const bool isText = converted(text, bytes, isCut);
    require((isText && result == 0) || ((!isText || isCut) && result == (family == Family::oli ? -60 : -1)),
            "what is no text is refused, and nothing else: " + std::to_string(result));
    const auto isControl = [&](char byte) { return g_ascii_iscntrl(byte) && (byte != '\n' || family == Family::oli); };
    if (result != 0 || std::any_of(bytes.begin(), bytes.end(), isControl))
        return;
    desk.printer.finish();
    constexpr int reach = 3, lineDots = 30;  // a dot is cut off, and the paper moves three at a time
    const double unit = way % 2 == 0 ? 180 / 25.4 : 1;
    double top = (way == 0 ? y + 1 : y) * unit;
    std::size_t seen = 0;
    for (const std::string& line : linesOf(family, bytes)) {
        if (!line.empty()) {
            require(seen < desk.texts.size(), "every line is printed");
            const sim::event::Text& shown = desk.texts[seen++];
            require(std::string(shown.bytes.begin(), shown.bytes.end()) == line, "a line is printed as it is");
            require(std::abs(shown.at.xDots - x * unit) <= reach && std::abs(shown.at.yDots - top) <= reach,
                    "a line is where it belongs: " + std::to_string(shown.at.xDots) + ", " +
                        std::to_string(shown.at.yDots) + " for " + std::to_string(x * unit) + ", " +
                        std::to_string(top));
            if (how >= 4 && shown.ink)
                requireInk(*desk.page(), shown);
        }
        top += lineDots;
    }
    require(seen == desk.texts.size() && desk.mistake.empty(), "nothing else is printed: " + desk.mistake);
}

void decodeWire(Input input) {
    const int how = input.byte();
    const Family family = how % 2 == 0 ? Family::oli : Family::oki;
    using How = sim::AnswerTrouble::How;
    const How trouble[] = {How::right, How::pieces, How::missing, How::garbled};
    const sim::ScenarioFile file{{.family = family,
                                  .pageWidthDots = 120,
                                  .pageHeightDots = 120,
                                  .answers = {{.how = trouble[how >> 1 & 3], .size = 3}}}};
    const std::string_view bytes = input.rest();
    const std::size_t piece = 1 + static_cast<std::size_t>(how >> 4 & 7);
    const bool seen = (how & 128) != 0;  // text is drawn then, which takes its time
    require(lifeOf(file, bytes, piece, 1, seen) == lifeOf(file, bytes, 4096, 1, false), "pieces make no difference");

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

/// A scan as two bytes of an input ask for it.
struct Scan {
    explicit Scan(Input& input) : first(input.byte()), second(input.byte()) {}
    int first, second;
    [[nodiscard]] bool endless() const { return (first & 64) != 0; }
    [[nodiscard]] int run(Family family) const {
        const std::string front = fileOf((first & 16) != 0 ? "front.jpg" : "front.bmp"),
                          back = fileOf((first & 32) != 0 ? "back.jpg" : "back.bmp");
        const int type = first & 3, sides = first >> 2 & 3, dpi = second % 3 * 200, direction = first >> 7;
        return family == Family::oki
                   ? YARDO_ScantoFileOKI(front.c_str(), back.c_str(), type, 0, 0, 0, false, sides, dpi, direction)
                   : YARDO_ScantoFileOLI(front.c_str(), back.c_str(), type, 0, 0, false, sides, dpi, direction);
    }
};

void scan(Family family, Input input, const std::set<int>& results) {
    const Scan wish(input);
    Script script(input.rest(), wish.endless());
    const int result = wish.run(family);
    require(results.contains(result), "a documented result, not " + std::to_string(result));
    // A scan goes on as long as the printer has something to say that belongs to it.
    require(wish.endless() || secondsGone() <= script.patience(),
            "an end in time, not " + std::to_string(secondsGone()) + " s");
    for (const auto& entry : std::filesystem::directory_iterator(fileOf(""))) {
        const bool temporary = entry.path().filename().string().starts_with(".tmp_");
        require(result != 0 || !temporary, "no temporary file stays");
        if (family == Family::oki || temporary)
            continue;
        int width = 0, height = 0, offset = 0, bits = 0;
        require(getBitmapInfo(entry.path().c_str(), &width, &height, &offset, &bits) == 0, "a file is a BMP");
        const std::int64_t size = 54 + (std::int64_t{width} * bits + 31) / 32 * 4 * std::abs(height);
        require(static_cast<std::int64_t>(entry.file_size()) == size, "a file is there whole");
    }
}

struct Range {
    int lowest = 0, highest = lowest;
    [[nodiscard]] constexpr bool has(int result) const { return lowest <= result && result <= highest; }
};

struct Query {
    const char* name;
    int (*call)(Input& input);
    Range good, failed;
    [[nodiscard]] bool isGood(int result) const { return good.has(result) || failed.has(result); }
};

int readOneStripe(Input& input) {
    const int track = input.upTo(1), length = 2 + input.byte();
    const Exact buffer(std::string(static_cast<std::size_t>(length), '#'));
    const int result = YARDO_PR2_MSR(track, buffer.bytes.get(), length);
    require(result != 0 || buffer.view().find('\0') != std::string_view::npos, "the data of the stripe have an end");
    return result;
}

int readBothStripes(Input& input) {
    const int length0 = 2 + input.upTo(63), length1 = 2 + input.upTo(63);
    const Exact first(std::string(static_cast<std::size_t>(length0), '#')),
        second(std::string(static_cast<std::size_t>(length1), '#'));
    return YARDO_PR2_MSRALL(first.bytes.get(), length0, second.bytes.get(), length1);
}

int readConfiguration(Input& input) {
    const Exact buffer(std::string(static_cast<std::size_t>(input.byte()), '#'));
    const int count = GetPrinterConfig(reinterpret_cast<unsigned char*>(buffer.bytes.get()), buffer.length);
    require(count >= 0 && count <= buffer.length, "as much as there is room for");
    return 0;
}

int writeConfiguration(Input& input) {
    const Exact block(input.take(static_cast<std::size_t>(input.upTo(63))));
    return SetPrinterConfig(block.octets(), block.length);
}

int readFirmware(Input&) {
    const Exact out(std::string(13, '#'));
    return YARDO_PR2_GetFWID(reinterpret_cast<unsigned char*>(out.bytes.get()));
}

int askOkiPaper(Input&) {
    struct passbook_oki_paper paper {};
    paper.size = sizeof paper;
    const int result = passbook_oki_paper("line", &paper);
    require(result != 0 || paper.status == 1 || paper.status == 2, "a paper status that is known");
    return result;
}

constexpr Query queries[] = {
    {"printer status", [](Input&) { return YARDO_PR2_GetPrinterStatus(); }, {1, 15}, {-22}},
    {"paper status", [](Input&) { return YARDO_PR2_GetPaperStatus(); }, {1, 4}, {-20}},
    {"firmware", readFirmware, {}, {-4}},
    {"initialise", [](Input& input) { return YARDO_PR2_InitPrinter(input.upTo(2), input.upTo(5)); }, {}, {-30}},
    {"stripe", readOneStripe, {}, {-4}},
    {"both stripes", readBothStripes, {}, {-4}},
    {"removal", [](Input& input) { return YARDO_PR2_SPB(input.upTo(60)); }, {}, {-20}},
    {"configuration", readConfiguration, {}, {}},
    {"configuration written", writeConfiguration, {}, {-52, -50}},
    {"OKI paper", askOkiPaper, {}, {-20}},
    {"OKI measures", [](Input&) { return std::max(GetPaperWidth(), GetPaperLength()); }, {-999, 9999}, {}},
};

void hearReplies(Input input) {
    const Query& first = queries[input.upTo(std::size(queries) - 1)];
    const Query& second = queries[input.upTo(std::size(queries) - 1)];
    const bool endless = input.flag();
    Input arguments(input.take(8));
    Script script(input.rest(), endless);
    for (const Query* query : {&first, &second}) {
        const int result = query->call(arguments);
        require(query->isGood(result),
                query->name + std::string(" gives a documented result, not ") + std::to_string(result));
        require(secondsGone() <= script.patience(), std::string("an end in time: ") + query->name);
        if (protocol == nullptr)
            script.connect();
    }
}

constexpr Target table[] = {
    {"text", 1024, printText},
    {"wire", 2048, decodeWire},
    {"oki-scan", 16384,
     [](Input input) {
         scan(Family::oki, input, {0, -3, -20, -21, -4, -40, -31});
     }},
    // The room for a side is reserved as the printer announces it, and used as its data come.
    {"oli-scan", 16384,
     [](Input input) {
         scan(Family::oli, input, {0, 2, -40, -31});
     },
     "commands", 2200},
    {"replies", 512, hearReplies},
};

}  // namespace

const std::span<const Target> printerTargets = table;

}  // namespace passbook::fuzz
