// The printer's parts around the print head: the slot, the magnetic stripe, the scanner, and its answers.

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "sim/printer.h"

namespace passbook::sim {

using wire::Command;
using wire::CommandId;

namespace {

constexpr std::size_t measureDigits = 4;

/// What ends a configuration block.
constexpr std::string_view blockEnd = "\033Z";

constexpr std::array<int, 4> dotsPerInchOf{600, 400, 300, 200};

event::Access accessOf(bool read, bool accepted) {
    return read ? event::Access::read : accepted ? event::Access::written : event::Access::refused;
}

}  // namespace

void Printer::obeyStripe(const Command& command) {
    const bool read = command.id == CommandId::stripeRead;
    const bool fits = command.bytes.size() <= maxStripeData;
    std::string& data = scenario_.stripes[stripe_];
    if (!read && fits)
        data.assign(command.bytes.begin(), command.bytes.end());
    emit(event::Stripe{accessOf(read, fits), stripe_, data});
    if (read)
        answer(command, "\033]" + data + "\x1C");
}

void Printer::obeyConfiguration(const Command& command) {
    const bool read = command.id == CommandId::configurationRead;
    const bool accepted = scenario_.configurationResult == 0;
    if (!read && accepted)
        scenario_.configuration.assign(command.bytes.begin(), command.bytes.end() - blockEnd.size());
    const std::string block = scenario_.configuration + std::string(blockEnd);
    emit(event::Configuration{accessOf(read, accepted), block});
    answer(command, read ? block : "\033 =" + std::to_string(scenario_.configurationResult));
}

std::string Printer::measure(std::optional<int> given, int dots) const {
    // Measured as the document is drawn in: without one there is nothing to tell.
    const int tenths = static_cast<int>(std::lround(dotsToMm(dots) * 10));
    const int value = paper_.state() == PaperState::inPlace ? given.value_or(tenths) : 0;
    const std::string digits = std::to_string(std::clamp(value, 0, largestMeasure));
    return std::string(measureDigits - digits.size(), '0') + digits;
}

void Printer::eject(const Command& command) {
    // A form feed on an empty slot is how a host clears up; only an ejection proper misses its document.
    if (!paper_.eject() && command.id == CommandId::eject)
        emit(event::NoPaper{command.name});
}

void Printer::layPage() {
    page_.emplace(scenario_.pageWidthDots, scenario_.pageHeightDots, painter_);
    headDots_ = 0;
    line_ = 0;
}

void Printer::paperChanged(PaperChange what) {
    // Whoever pulls a jammed document out has cleared the jam, too.
    const bool pulled = what == PaperChange::taken && page_;
    if (pulled)
        endJam();
    emit(event::Paper{what, rules_.paperStatus.at(static_cast<std::size_t>(paper_.state()) - 1)});
    if (what == PaperChange::fedIn)
        layPage();
    else if (what == PaperChange::ejected || pulled)
        pageEnds();
}

void Printer::pageEnds() {
    endScan();
    std::optional<Page> ended = std::exchange(page_, std::nullopt);
    if (ejected_ && ended)
        ejected_(std::move(*ended));
}

void Printer::answer(const Command& command, std::vector<std::uint8_t> bytes) {
    const Delivery delivery = deliveryOf(command.name);
    if (delivery.garbled)
        // The eighth bit set, as a line with the wrong parity would: no byte keeps its meaning.
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(byte ^ 0x80U);
    for (int times = delivery.doubled ? 2 : 1; times > 0; --times) {
        std::string_view lost;
        if (delivery.missing)
            lost = "silent";
        else if (!answers_.add(bytes, delivery.piece, delivery.delay))
            lost = "too many answers unread";
        emit(event::Answer{command.name, bytes, lost});
    }
}

void Printer::forgetAnswers(std::size_t unread) {
    endScan();
    unread += answers_.clear();
    if (unread > 0)
        emit(event::Unread{unread});
}

std::vector<std::uint8_t> Printer::takeAnswer() {
    ScanDelivery* const scan = answers_.scan();
    if (scan == nullptr)
        return answers_.take();
    std::vector<std::uint8_t> piece = scan->next();
    if (scan->done()) {
        emit(event::ScanDelivered{scan->brokenOff(), scan->dataBytes()});
        answers_.dropScans();
    }
    return piece;
}

void Printer::startScan(const Command& command) {
    if (jam_)
        return emit(event::Jammed{command.name});
    if (!page_)
        return emit(event::NoPaper{command.name});
    const Delivery how = deliveryOf(command.name);
    // A host that asks anew has no use for the rest of what it asked before.
    answers_.dropScans();
    emit(event::ScanStarted{scanRequest_.bits, dotsPerInchOf.at(static_cast<std::size_t>(scanRequest_.resolution)),
                            scanRequest_.fromBottom});
    ScanScenario scan = scanOfDocument();
    scan.trouble.silent = scan.trouble.silent || how.missing;
    auto delivery = std::make_unique<ScanDelivery>(rules_.scan, scanRequest_, std::move(scan));
    if (!delivery->done())
        answers_.add(std::move(delivery), how.delay);
}

ScanScenario Printer::scanOfDocument() const {
    ScanScenario scan = scenario_.scan;
    if (scan.sides[0].empty())
        scan.sides[0] = documentFromPage(*page_);
    if (scan.sides[1].empty())
        scan.sides[1] = blankDocument(scan.sides[0].width, scan.sides[0].height);
    return scan;
}

void Printer::endScan() {
    if (answers_.dropScans())
        emit(event::ScanEnded{});
}

}  // namespace passbook::sim
