// The printer's parts around the print head: the slot, the magnetic stripe, and what it answers.

#include <algorithm>
#include <cmath>
#include <utility>

#include "sim/glyph.h"
#include "sim/printer.h"
#include "sim/text.h"

namespace passbook::sim {

using wire::Command;
using wire::CommandId;

namespace {

/// What a host may leave unread. A host that only asks and never listens must not eat memory.
constexpr std::size_t maxAnswers = 64 * 1024;

constexpr std::size_t firmwareLength = 13;

/// The status byte of each of the fifteen printer states, in the order of their numbers.
constexpr std::string_view printerStatusBytes = "PQTXabdh1248qrp";

/// The status byte of each paper state, likewise: none, ejected, at the entry, in place.
constexpr std::string_view paperStatusBytes = "@ABC";

constexpr std::size_t measureDigits = 4;

/// What ends a configuration block.
constexpr std::string_view blockEnd = "\033Z";

std::vector<std::uint8_t> bytesOf(std::string_view text) {
    return {text.begin(), text.end()};
}

}  // namespace

bool Printer::obeyDevice(const Command& command) {
    switch (command.id) {
        case CommandId::feedIn:
            emit(commandEvent(command));
            paper_.feedIn();
            return true;
        case CommandId::eject:
        case CommandId::formFeed:
            emit(commandEvent(command));
            eject(command);
            return true;
        case CommandId::clearAll:
            emit(commandEvent(command));
            format_ = Format{};
            headDots_ = 0;
            return true;
        case CommandId::printerStatus: {
            emit(commandEvent(command));
            const auto index = static_cast<std::size_t>(scenario_.printerStatus - 1);
            const char status = index < printerStatusBytes.size() ? printerStatusBytes[index] : 'P';
            answer(command, bytesOf(std::string("\033r") + status));
            return true;
        }
        case CommandId::paperStatus:
            emit(commandEvent(command));
            if (scenario_.family == Family::oki) {
                answer(command, {wire::esc, 'S', static_cast<std::uint8_t>(paperStatus() - 1), 0});
            } else {
                const char status = paperStatusBytes[static_cast<std::size_t>(paperStatus()) - 1];
                // Framed like the other long answers: what was asked, a fixed byte, the state, an end mark.
                answer(command, bytesOf(std::string("\033B5") + status + "\033Z"));
            }
            return true;
        case CommandId::paperWidth:
            emit(commandEvent(command));
            answer(command, bytesOf("\033-" + measure(scenario_.paperWidth, scenario_.pageWidthDots)));
            return true;
        case CommandId::paperLength:
            emit(commandEvent(command));
            answer(command, bytesOf("\033L" + measure(scenario_.paperLength, scenario_.pageHeightDots)));
            return true;
        case CommandId::configurationRead:
        case CommandId::configurationWrite:
            obeyConfiguration(command);
            return true;
        case CommandId::firmware: {
            emit(commandEvent(command));
            std::string identifier = scenario_.firmware;
            identifier.resize(firmwareLength, ' ');
            answer(command, bytesOf("\033b" + identifier + "\033Z"));
            return true;
        }
        case CommandId::stripeSelect:
        case CommandId::stripeRead:
        case CommandId::stripeWrite:
            obeyStripe(command);
            return true;
        default:
            return false;
    }
}

void Printer::obeyStripe(const Command& command) {
    std::string& data = scenario_.stripes[stripe_];
    nlohmann::json event{{"event", "stripe"}};
    if (command.id == CommandId::stripeSelect) {
        stripe_ = command.number() == 0 ? 0 : 1;
        event["what"] = "selected";
        event["stripe"] = stripe_;
        emit(event);
        return;
    }
    event["stripe"] = stripe_;
    if (command.id == CommandId::stripeRead) {
        event["what"] = "read";
    } else if (command.bytes.size() > maxStripeData) {
        event["what"] = "refused";
    } else {
        event["what"] = "written";
        data.assign(command.bytes.begin(), command.bytes.end());
    }
    const std::vector<std::uint8_t> now = bytesOf(data);
    event["bytes"] = toHex(now);
    event["text"] = toUtf8(now);
    emit(event);
    if (command.id == CommandId::stripeRead)
        answer(command, bytesOf("\033]" + data + "\x1C"));
}

void Printer::obeyConfiguration(const Command& command) {
    const bool read = command.id == CommandId::configurationRead;
    const bool accepted = scenario_.configurationResult == 0;
    if (!read && accepted)
        scenario_.configuration.assign(command.bytes.begin(), command.bytes.end() - blockEnd.size());
    const std::vector<std::uint8_t> block = bytesOf(scenario_.configuration + std::string(blockEnd));
    emit({{"event", "configuration"},
          {"what", read       ? "read"
                   : accepted ? "written"
                              : "refused"},
          {"bytes", toHex(block)}});
    answer(command, read ? block : bytesOf("\033 =" + std::to_string(scenario_.configurationResult)));
}

int Printer::paperStatus() const {
    if (scenario_.family == Family::oki)
        return paper_.state() == PaperState::inPlace ? 1 : 2;
    return static_cast<int>(paper_.state());
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
        emit({{"event", "no-paper"}, {"name", command.name}});
}

void Printer::layPage() {
    page_.emplace(scenario_.pageWidthDots, scenario_.pageHeightDots, painter_);
    headDots_ = 0;
    line_ = 0;
}

void Printer::paperChanged(std::string_view what) {
    emit({{"event", "paper"}, {"what", what}, {"status", paperStatus()}});
    if (what == "fed-in") {
        layPage();
    } else if (what == "ejected") {
        endScan();
        std::optional<Page> ejected = std::exchange(page_, std::nullopt);
        if (ejected_ && ejected)
            ejected_(std::move(*ejected));
    }
}

void Printer::answer(const Command& command, std::vector<std::uint8_t> bytes) {
    nlohmann::json event{{"event", "answer"}, {"to", command.name}};
    if (scenario_.garble) {
        // The eighth bit set, as a line with the wrong parity would: no byte keeps its meaning.
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>(byte ^ 0x80U);
    }
    event["bytes"] = toHex(bytes);
    if (scenario_.silent || answerBytes_ + bytes.size() > maxAnswers) {
        event["event"] = "answer-lost";
        event["note"] = scenario_.silent ? "silent" : "too many answers unread";
    } else {
        answerBytes_ += bytes.size();
        answers_.push_back({std::move(bytes), nullptr});
    }
    emit(event);
}

void Printer::forgetAnswers(std::size_t unread) {
    unread += std::exchange(answerBytes_, 0);
    endScan();
    answers_.clear();
    if (unread > 0)
        emit({{"event", "unread"}, {"bytes", unread}});
}

std::vector<std::uint8_t> Printer::takeAnswer() {
    std::vector<std::uint8_t> taken;
    if (answers_.empty())
        return taken;
    if (answers_.front().scan)
        return takeScanPiece();
    while (scenario_.split == 0 && answerPending() && !answers_.front().scan) {
        const std::vector<std::uint8_t>& whole = answers_.front().bytes;
        taken.insert(taken.end(), whole.begin(), whole.end());
        answers_.pop_front();
    }
    if (scenario_.split > 0) {
        std::vector<std::uint8_t>& first = answers_.front().bytes;
        const auto end = first.begin() + static_cast<std::ptrdiff_t>(std::min(scenario_.split, first.size()));
        taken.assign(first.begin(), end);
        first.erase(first.begin(), end);
        if (first.empty())
            answers_.pop_front();
    }
    answerBytes_ -= taken.size();
    return taken;
}

}  // namespace passbook::sim
