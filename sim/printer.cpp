#include "sim/printer.h"

#include <algorithm>
#include <array>
#include <cmath>
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

/// The row of a code byte, null if it means nothing.
template <typename Row, std::size_t size>
const Row* find(const Row (&rows)[size], int code) {
    const Row* const found = std::find_if(rows, rows + size, [code](const Row& row) { return row.code == code; });
    return found == rows + size ? nullptr : found;
}

constexpr int heightFactors = 3;  // codes '0' to '2': once, twice, three times

constexpr std::size_t firmwareLength = 13;

/// The status byte of each of the fifteen printer states, in the order of their numbers.
constexpr std::string_view printerStatusBytes = "PQTXabdh1248qrp";

/// What each of the two preparations of a scan is answered with.
const std::array<std::vector<std::uint8_t>, 2> prepared{{{wire::esc, 'S', 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}}};

}  // namespace

Printer::Printer(Scenario scenario, EventSink events, PageSink ejected)
    : scenario_(std::move(scenario)),
      rules_(rulesOf(scenario_.family)),
      events_(std::move(events)),
      ejected_(std::move(ejected)),
      decoder_(wire::makeDecoder(scenario_.family)),
      paper_(rules_.slot, scenario_.paper, scenario_.habits, [this](PaperChange what) { paperChanged(what); }),
      painter_(std::make_shared<GlyphPainter>()),
      rulesOfScenario_(std::exchange(scenario_.rules, {})) {
    for (std::string& data : scenario_.stripes)
        data.resize(std::min(data.size(), maxStripeData));
    if (paper_.state() == PaperState::inPlace)
        layPage();
}

std::size_t Printer::receive(std::span<const std::uint8_t> bytes) {
    lineTouched_ = false;
    std::size_t taken = 0;
    while (taken < bytes.size() && !lineTouched_) {
        // With rules, byte by byte: any of them can be the one behind which all is different.
        const std::size_t count = rulesOfScenario_.empty() ? bytes.size() : 1;
        decoder_->feed(bytes.subspan(taken, count), [this](const Command& command) { obey(command); });
        rulesOfScenario_.bytes(count);
        runRules();
        taken += count;
    }
    return taken;
}

void Printer::printWaitingText() {
    decoder_->handOnText([this](const Command& command) { obey(command); });
}

void Printer::finish() {
    decoder_->finish([this](const Command& command) { obey(command); });
}

void Printer::obey(const Command& command) {
    rulesOfScenario_.command(command.name);
    runRules();
    follow(command);
    runRules();
}

void Printer::follow(const Command& command) {
    const int number = command.number();
    const auto tell = [&] { emit(event::Command{command.name, command.numbers}); };
    bool followed = true;
    switch (command.id) {
        case CommandId::unknown:
            return emit(event::Unknown{command.bytes, command.note});
        case CommandId::malformedStripe:
        case CommandId::malformedConfiguration:
            return emit(event::Malformed{command.name, command.note, command.bytes.size()});
        case CommandId::text:
            return printText(command);
        case CommandId::bitmapRun:
        case CommandId::malformedBitmap:
            return printBitmap(command);

        case CommandId::horizontalPosition:
            return move(command, horizontalDots(number), line_);
        case CommandId::verticalPosition:
            return move(command, headDots_, number);
        case CommandId::headMove:
            return move(command, headDots_ + number, line_);
        case CommandId::paperFeed:
            // The head goes home while the paper moves: hosts place each strip of a picture by a feed and a move from
            // the margin, with no carriage return in between.
            return move(command, 0, line_ + linesPerFeedUnit * number);
        case CommandId::carriageReturn:
            return move(command, 0, line_);
        case CommandId::lineFeed:
            return move(command, headDots_, line_ + format_.lineSpace);

        case CommandId::lineSpace:
            format_.lineSpace = number;
            break;
        case CommandId::pitch: {
            const PitchCode* const pitch = find(pitches, number);
            followed = pitch != nullptr;
            if (followed)
                format_.perInch = pitch->perInch;
            break;
        }
        case CommandId::fontHeight: {
            const int factor = number - '0' + 1;
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
            const UnderlineCode* const underline = find(underlines, number);
            followed = underline != nullptr;
            if (followed)
                format_.underline = underline->style;
            break;
        }
        case CommandId::underlineOff:
            format_.underline = Underline::none;
            break;
        case CommandId::clearAll:
            format_ = Format{};
            headDots_ = 0;
            break;

        case CommandId::clearError:
            clearError();
            break;
        case CommandId::feedIn:
            tell();
            return jam_ ? emit(event::Jammed{command.name}) : paper_.feedIn();
        case CommandId::eject:
        case CommandId::formFeed:
            tell();
            return jam_ ? emit(event::Jammed{command.name}) : eject(command);
        case CommandId::printerStatus: {
            tell();
            const auto index = static_cast<std::size_t>(printerStatus() - 1);
            answer(command,
                   std::string("\033r") + (index < printerStatusBytes.size() ? printerStatusBytes[index] : 'P'));
            if (status_ && status_->until.answers && --*status_->until.answers == 0)
                status_.reset();
            return;
        }
        case CommandId::paperStatus:
            tell();
            return answer(command, rules_.paperAnswer(jam_ && scenario_.family == Family::oki ? PaperState::ejected
                                                                                              : paper_.state()));
        case CommandId::paperWidth:
            tell();
            return answer(command, "\033-" + measure(scenario_.paperWidth, scenario_.pageWidthDots));
        case CommandId::paperLength:
            tell();
            return answer(command, "\033L" + measure(scenario_.paperLength, scenario_.pageHeightDots));
        case CommandId::firmware: {
            tell();
            std::string identifier = scenario_.firmware;
            identifier.resize(firmwareLength, ' ');
            return answer(command, "\033b" + identifier + "\033Z");
        }
        case CommandId::configurationRead:
        case CommandId::configurationWrite:
            return obeyConfiguration(command);
        case CommandId::stripeSelect:
            stripe_ = number == 0 ? 0 : 1;
            return emit(event::StripeSelected{stripe_});
        case CommandId::stripeRead:
        case CommandId::stripeWrite:
            return obeyStripe(command);

        case CommandId::scanPrepare:
            tell();
            return answer(command, prepared.at(static_cast<std::size_t>(number)));
        case CommandId::scanMode:
            followed = setScanMode(scanRequest_, command.numbers[0], command.numbers[1]);
            break;
        case CommandId::scanSides:
            followed = setScanSides(scanRequest_, std::span(command.numbers).first(2));
            break;
        default:
            break;  // nothing that could be seen: it is enough to have been heard
    }
    if (followed)
        tell();
    else
        emit(event::BadValue{command.name, command.numbers});
    if (command.id == rules_.scanStart)
        startScan(command);
}

void Printer::move(const Command& command, double headDots, int line) {
    headDots_ = std::min(headDots, farthestHeadDots);
    line_ = std::min(line, farthestLine);
    emit(event::Command{command.name, command.numbers, place()});
}

void Printer::printText(const Command& command) {
    event::Text text{command.bytes, place()};
    const double cellDots = static_cast<double>(dotsPerInch) / format_.perInch;
    const bool prints = page_ && !jam_;
    if (prints)
        countPage();
    text.look = {prints ? page_->number() : 0, format_.perInch,      format_.bold,     format_.wideLatin ? 2 : 1,
                 format_.wideChinese ? 2 : 1,  format_.heightFactor, format_.underline};
    std::string lost;
    for (const Character& character : charactersOf(command.bytes)) {
        Glyph glyph;
        glyph.utf8 = character.utf8;
        glyph.xDots = headDots_;
        glyph.yDots = text.at.yDots;
        glyph.doubleWidth = character.wide ? format_.wideChinese : format_.wideLatin;
        glyph.widthDots = cellDots * (character.wide ? 2 : 1) * (glyph.doubleWidth ? 2 : 1);
        glyph.heightFactor = format_.heightFactor;
        glyph.bold = format_.bold;
        glyph.underline = format_.underline;
        if (prints && !page_->drawGlyph(glyph))
            lost += character.utf8;
        if (character.utf8 != " ") {
            const int left = text.ink ? text.ink->left : static_cast<int>(headDots_);
            text.ink = {left, glyph.yDots, static_cast<int>(std::ceil(headDots_ + glyph.widthDots)),
                        glyph.yDots + glyph.heightFactor * lineDots};
        }
        headDots_ = std::min(headDots_ + glyph.widthDots, farthestHeadDots);
    }
    if (prints)
        emit(text);
    else if (jam_)
        emit(event::Jammed{command.name, text});
    else
        emit(event::NoPaper{command.name, text});
    if (!lost.empty())
        emit(event::OffPage{command.name, lost});
}

void Printer::printBitmap(const Command& command) {
    const std::size_t columns = command.bytes.size() / columnBytes;
    const event::Place at = place();
    const bool prints = page_ && !jam_;
    if (prints)
        countPage();
    if (command.id == CommandId::malformedBitmap)
        emit(event::Malformed{command.name, command.note, command.bytes.size(), at});
    else
        emit(event::Bitmap{command.bytes.size(), at, prints ? page_->number() : 0});
    // Of a malformed run the whole columns are printed all the same: the head strikes as the data comes in.
    std::size_t lost = 0;
    if (prints) {
        lost = page_->drawColumns(at.xDots, at.yDots, std::span(command.bytes).first(columns * columnBytes),
                                  rules_.dotOrder);
        rulesOfScenario_.dots({at.xDots, at.yDots, at.xDots + static_cast<int>(columns), at.yDots + lineDots},
                              [this](int x, int y) { return page_->dot(x, y); });
    } else if (jam_)
        emit(event::Jammed{command.name, {}, columns});
    else
        emit(event::NoPaper{command.name, {}, columns});
    headDots_ = std::min(at.xDots + static_cast<double>(columns), farthestHeadDots);
    if (lost > 0)
        emit(event::OffPage{command.name, {}, lost});
}

void Printer::countPage() {
    if (page_->number() == 0)
        page_->setNumber(++pages_);
}

void Printer::emit(const Event& event) {
    if (events_)
        events_(event);
    rulesOfScenario_.event(event);
}

event::Place Printer::place() const {
    return {static_cast<int>(std::floor(headDots_ + 0.5)), verticalDots(line_)};
}

}  // namespace passbook::sim
