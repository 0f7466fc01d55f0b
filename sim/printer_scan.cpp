// The printer's scanner.

#include <algorithm>
#include <array>
#include <utility>

#include "sim/printer.h"

namespace passbook::sim {

using wire::Command;
using wire::CommandId;

namespace {

constexpr std::array<int, 4> dotsPerInchOf{600, 400, 300, 200};

/// What each of the two preparations is answered with.
const std::array<std::vector<std::uint8_t>, 2> prepared{{{wire::esc, 'S', 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}}};

}  // namespace

bool Printer::obeyScan(const Command& command) {
    bool followed = true;
    switch (command.id) {
        case CommandId::scanPrepare:
            emit(commandEvent(command));
            answer(command, prepared.at(static_cast<std::size_t>(command.number())));
            return true;
        case CommandId::scanMode:
            followed = setScanMode(scanRequest_, command.numbers[0], command.numbers[1]);
            break;
        case CommandId::scanSides:
            followed = setScanSides(scanRequest_, std::span(command.numbers).first(2));
            break;
        case CommandId::scanStart:
            break;
        default:
            return false;
    }
    report(command, followed);
    // The one family starts when it is told to, the other as soon as it knows the sides.
    if (command.id == (scenario_.family == Family::oki ? CommandId::scanStart : CommandId::scanSides))
        startScan(command);
    return true;
}

void Printer::startScan(const Command& command) {
    if (!page_) {
        emit({{"event", "no-paper"}, {"name", command.name}});
        return;
    }
    // A host that asks anew has no use for the rest of what it asked before.
    (void)dropScan();
    emit({{"event", "scan"},
          {"what", "started"},
          {"bits", scanRequest_.bits},
          {"dpi", dotsPerInchOf.at(static_cast<std::size_t>(scanRequest_.resolution))},
          {"fromBottom", scanRequest_.fromBottom}});
    auto delivery = std::make_unique<ScanDelivery>(scenario_.family, scanRequest_, scanOfDocument());
    if (!delivery->done())
        answers_.push_back({{}, std::move(delivery)});
}

ScanScenario Printer::scanOfDocument() const {
    ScanScenario scan = scenario_.scan;
    scan.silent = scan.silent || scenario_.silent;
    if (scan.sides[0].empty())
        scan.sides[0] = documentFromPage(*page_);
    if (scan.sides[1].empty())
        scan.sides[1] = blankDocument(scan.sides[0].width, scan.sides[0].height);
    return scan;
}

std::vector<std::uint8_t> Printer::takeScanPiece() {
    ScanDelivery& delivery = *answers_.front().scan;
    std::vector<std::uint8_t> piece = delivery.next();
    if (delivery.done()) {
        emit({{"event", "scan"},
              {"what", delivery.brokenOff() ? "broken-off" : "delivered"},
              {"bytes", delivery.dataBytes()}});
        answers_.pop_front();
    }
    return piece;
}

bool Printer::dropScan() {
    return std::erase_if(
               answers_, [](const Outgoing& outgoing) { return outgoing.scan != nullptr; }) > 0;
}

void Printer::endScan() {
    if (dropScan())
        emit({{"event", "scan"}, {"what", "ended"}});
}

}  // namespace passbook::sim
