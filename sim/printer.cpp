#include "sim/printer.h"

#include <algorithm>
#include <cmath>
#include <iterator>
#include <utility>

#include "sim/glyph.h"
#include "sim/text.h"

namespace passbook::sim {

using wire::Command;
using wire::CommandId;

namespace {

using wire::columnBytes;

/// Far beyond the picture, near enough that no sum overflows: how far line feeds and text can carry the head.
constexpr double farthestHeadDots = 4.0 * maxPageWidthDots;
constexpr int farthestLine = 4 * maxPageHeightDots;

constexpr int linesPerFeedUnit = 2;  // 1/120 inch in 1/240 inch

/// 1/120 inch in dots, a half dot to the right; 1/240 inch in dots, to the nearest.
constexpr int horizontalDots(int units) {
    return (units * 3 + 1) / 2;
}
constexpr int verticalDots(int units) {
    return (units * 3 + 2) / 4;
}

double roundedMm(double dots) {
    return std::round(dotsToMm(dots) * 100) / 100;
}

struct PitchCode {
    char code;
    int perInch;
};
constexpr PitchCode pitches[] = {{'1', 10}, {'2', 12}, {'3', 15}, {'4', 16}, {'8', 17}};

struct UnderlineCode {
    char code;
    Underline style;
};
constexpr UnderlineCode underlines[] = {{'0', Underline::single}, {'3', Underline::doubled}, {'4', Underline::heavy}};

constexpr int heightFactors = 3;  // codes '0' to '2': once, twice, three times

}  // namespace

Printer::Printer(Scenario scenario, EventSink events, PageSink ejected)
    : scenario_(std::move(scenario)),
      events_(std::move(events)),
      ejected_(std::move(ejected)),
      decoder_(wire::makeDecoder(scenario_.family)),
      paper_(scenario_.family == Family::oki ? Paper::Slot::drawsIn : Paper::Slot::fedByHost, scenario_.paper,
             scenario_.habits, [this](std::string_view what) { paperChanged(what); }),
      painter_(std::make_shared<GlyphPainter>()) {
    for (std::string& data : scenario_.stripes)
        data.resize(std::min(data.size(), maxStripeData));
    if (paper_.state() == PaperState::inPlace)
        layPage();
}

void Printer::receive(std::span<const std::uint8_t> bytes) {
    decoder_->feed(
        bytes, [this](const Command& command) { obey(command); });
}

void Printer::printWaitingText() {
    decoder_->handOnText([this](const Command& command) { obey(command); });
}

void Printer::finish() {
    decoder_->finish([this](const Command& command) { obey(command); });
}

void Printer::obey(const Command& command) {
    switch (command.id) {
        case CommandId::unknown:
            emit({{"event", "unknown"}, {"bytes", toHex(command.bytes)}, {"note", command.note}});
            return;
        case CommandId::malformedStripe:
        case CommandId::malformedConfiguration:
            emit({{"event", "malformed"},
                  {"name", command.name},
                  {"note", command.note},
                  {"bytes", command.bytes.size()}});
            return;
        case CommandId::text:
            printText(command);
            return;
        case CommandId::bitmapRun:
        case CommandId::malformedBitmap:
            printBitmap(command);
            return;
        default:
            break;
    }
    if (!obeyMove(command) && !obeyFormat(command) && !obeyDevice(command) && !obeyScan(command)) {
        // Nothing that could be seen: it is enough to have been heard.
        emit(commandEvent(command));
    }
}

bool Printer::obeyMove(const Command& command) {
    switch (command.id) {
        case CommandId::horizontalPosition:
            headDots_ = horizontalDots(command.number());
            break;
        case CommandId::verticalPosition:
            line_ = command.number();
            break;
        case CommandId::headMove:
            headDots_ = std::min(headDots_ + command.number(), farthestHeadDots);
            break;
        case CommandId::paperFeed:
            // The head goes home while the paper moves: hosts place each strip of a picture by a feed and a move from
            // the margin, with no carriage return in between.
            headDots_ = 0;
            line_ = std::min(line_ + linesPerFeedUnit * command.number(), farthestLine);
            break;
        case CommandId::carriageReturn:
            headDots_ = 0;
            break;
        case CommandId::lineFeed:
            line_ = std::min(line_ + format_.lineSpace, farthestLine);
            break;
        default:
            return false;
    }
    nlohmann::json event = commandEvent(command);
    addPosition(event);
    emit(std::move(event));
    return true;
}

bool Printer::obeyFormat(const Command& command) {
    bool followed = true;
    switch (command.id) {
        case CommandId::lineSpace:
            format_.lineSpace = command.number();
            break;
        case CommandId::pitch: {
            const auto* pitch = std::find_if(std::begin(pitches), std::end(pitches),
                                             [&](const PitchCode& p) { return p.code == command.number(); });
            followed = pitch != std::end(pitches);
            if (followed)
                format_.cellDots = static_cast<double>(dotsPerInch) / pitch->perInch;
            break;
        }
        case CommandId::fontHeight: {
            const int factor = command.number() - '0' + 1;
            followed = factor >= 1 && factor <= heightFactors;
            if (followed)
                format_.heightFactor = factor;
            break;
        }
        case CommandId::boldOn:
        case CommandId::boldOff:
            format_.bold = command.id == CommandId::boldOn;
            break;
        case CommandId::latinNormalWidth:
        case CommandId::latinDoubleWidth:
            format_.wideLatin = command.id == CommandId::latinDoubleWidth;
            break;
        case CommandId::chineseNormalWidth:
        case CommandId::chineseDoubleWidth:
            format_.wideChinese = command.id == CommandId::chineseDoubleWidth;
            break;
        case CommandId::underlineOn: {
            const auto* line = std::find_if(std::begin(underlines), std::end(underlines),
                                            [&](const UnderlineCode& u) { return u.code == command.number(); });
            followed = line != std::end(underlines);
            if (followed)
                format_.underline = line->style;
            break;
        }
        case CommandId::underlineOff:
            format_.underline = Underline::none;
            break;
        default:
            return false;
    }
    report(command, followed);
    return true;
}

void Printer::report(const Command& command, bool followed) const {
    nlohmann::json event = commandEvent(command);
    if (!followed)
        event["event"] = "bad-value";
    emit(event);
}

void Printer::printText(const Command& command) {
    const std::vector<Character> characters = charactersOf(command.bytes);
    std::string text;
    std::string lost;
    nlohmann::json event{{"event", "text"}, {"bytes", toHex(command.bytes)}};
    addPosition(event);
    for (const Character& character : characters) {
        Glyph glyph;
        glyph.utf8 = character.utf8;
        glyph.xDots = headDots_;
        glyph.yDots = yDots();
        glyph.doubleWidth = character.wide ? format_.wideChinese : format_.wideLatin;
        glyph.widthDots = format_.cellDots * (character.wide ? 2 : 1) * (glyph.doubleWidth ? 2 : 1);
        glyph.heightFactor = format_.heightFactor;
        glyph.bold = format_.bold;
        glyph.underline = format_.underline;
        if (page_ && !page_->drawGlyph(glyph))
            lost += character.utf8;
        text += character.utf8;
        headDots_ = std::min(headDots_ + glyph.widthDots, farthestHeadDots);
    }
    event["text"] = text;
    if (!page_) {
        event["event"] = "no-paper";
        event["name"] = command.name;
    }
    emit(event);
    if (!lost.empty())
        emit({{"event", "off-page"}, {"name", command.name}, {"text", lost}});
}

void Printer::printBitmap(const Command& command) {
    const std::size_t columns = command.bytes.size() / columnBytes;
    nlohmann::json event{{"event", "bitmap"}, {"columns", columns}, {"bytes", command.bytes.size()}};
    addPosition(event);
    if (command.id == CommandId::malformedBitmap) {
        event["event"] = "malformed";
        event["name"] = command.name;
        event["note"] = command.note;
    }
    emit(event);
    // Of a malformed run the whole columns are printed all the same: the head strikes as the data comes in.
    std::size_t lost = 0;
    if (page_) {
        const DotOrder order = scenario_.family == Family::oki ? DotOrder::upperHighest : DotOrder::upperLowest;
        lost = page_->drawColumns(xDots(), yDots(), std::span(command.bytes).first(columns * columnBytes), order);
    } else {
        emit({{"event", "no-paper"}, {"name", command.name}, {"columns", columns}});
    }
    headDots_ = std::min(xDots() + static_cast<double>(columns), farthestHeadDots);
    if (lost > 0)
        emit({{"event", "off-page"}, {"name", command.name}, {"dots", lost}});
}

void Printer::emit(const nlohmann::json& event) const {
    if (events_)
        events_(event);
}

nlohmann::json Printer::commandEvent(const Command& command) const {
    nlohmann::json event{{"event", "command"}, {"name", command.name}};
    if (command.numbers.size() > 1)
        event["values"] = command.numbers;
    else if (!command.numbers.empty())
        event["value"] = command.number();
    return event;
}

int Printer::xDots() const {
    return static_cast<int>(std::floor(headDots_ + 0.5));
}

int Printer::yDots() const {
    return verticalDots(line_);
}

void Printer::addPosition(nlohmann::json& event) const {
    event["xDots"] = xDots();
    event["xMm"] = roundedMm(xDots());
    event["yDots"] = yDots();
    event["yMm"] = roundedMm(yDots());
}

}  // namespace passbook::sim
