#include "wire/decoder.h"

#include <utility>

#include "wire/oki.h"
#include "wire/oli.h"

namespace passbook::wire {

namespace {

// A byte that a faulty command takes along with it. Control bytes and the lead bytes of text do not belong:
// they begin something of their own, which would be lost with them.
bool isCommandByte(std::uint8_t byte) {
    return byte >= 0x20 && byte <= 0x7F;
}

void emitUnknown(std::span<const std::uint8_t> bytes, std::string_view note, const CommandSink& sink) {
    sink({CommandId::kUnknown, "unknown", {}, {bytes.begin(), bytes.end()}, note, bytes.size()});
}

}  // namespace

void Decoder::feed(std::span<const std::uint8_t> bytes, const CommandSink& sink) {
    for (const std::uint8_t byte : bytes) {
        feedByte(byte, sink);
    }
}

void Decoder::finish(const CommandSink& sink) {
    switch (std::exchange(state_, State::kGround)) {
        case State::kGround:
            flushText(sink);
            break;
        case State::kSequence:
            emitUnknown(sequence_, "cut short", sink);
            break;
        case State::kData:
            finishData(sink);
            break;
    }
    sequence_.clear();
}

void Decoder::feedByte(std::uint8_t byte, const CommandSink& sink) {
    switch (state_) {
        case State::kGround:
            feedGround(byte, sink);
            break;
        case State::kSequence:
            feedSequence(byte, sink);
            break;
        case State::kData:
            feedData(byte, sink);
            break;
    }
}

void Decoder::feedGround(std::uint8_t byte, const CommandSink& sink) {
    switch (text_.add(byte)) {
        case TextRun::Result::kTaken:
            if (text_.wholeSize() >= kMaxText) {
                handOnText(sink);
            }
            return;
        case TextRun::Result::kNotText:
            flushText(sink);
            state_ = State::kSequence;
            feedSequence(byte, sink);
            return;
        case TextRun::Result::kBroken: {
            // Only the lead byte is wrong for certain: what followed it may be text of its own.
            std::vector<std::uint8_t> partial = text_.takePartial();
            flushText(sink);
            emitUnknown(std::span(partial).first(1), "half a character", sink);
            feed(std::span(partial).subspan(1), sink);
            feedByte(byte, sink);
            return;
        }
    }
}

void Decoder::feedSequence(std::uint8_t byte, const CommandSink& sink) {
    sequence_.push_back(byte);
    const Lookup found = lookUp(table_, sequence_);
    switch (found.match) {
        case Match::kPartial:
            return;
        case Match::kWhole:
            state_ = State::kGround;
            begin(*found.row, sink);
            sequence_.clear();
            return;
        case Match::kNone:
            break;
    }
    std::vector<std::uint8_t> faulty = std::exchange(sequence_, {});
    state_ = State::kGround;
    if (faulty.size() == 1) {
        emitUnknown(faulty, "no text and no command", sink);
        return;
    }
    if (isCommandByte(byte)) {
        emitUnknown(faulty, "no such command", sink);
        return;
    }
    faulty.pop_back();
    emitUnknown(faulty, "cut short", sink);
    feedByte(byte, sink);
}

void Decoder::begin(const Row& row, const CommandSink& sink) {
    if (hasData(row) && beginData(row, sequence_)) {
        state_ = State::kData;
        headLength_ = sequence_.size();
        return;
    }
    sink({row.id, row.name, numbersOf(row, sequence_), {}, {}, sequence_.size()});
}

void Decoder::handOnText(const CommandSink& sink) {
    // Only the whole characters go; one that has just begun stays for the next piece.
    std::vector<std::uint8_t> whole = text_.takeWhole();
    if (!whole.empty()) {
        const std::size_t length = whole.size();
        sink({CommandId::kText, "text", {}, std::move(whole), {}, length});
    }
}

void Decoder::flushText(const CommandSink& sink) {
    handOnText(sink);
    const std::vector<std::uint8_t> partial = text_.takePartial();
    if (!partial.empty()) {
        emitUnknown(partial, "half a character", sink);
    }
}

void Decoder::emitData(CommandId id, std::string_view name, std::size_t tailLength, std::string_view note,
                       const CommandSink& sink) {
    std::vector<std::uint8_t> data = std::exchange(data_, {});
    const std::size_t length = std::exchange(headLength_, 0) + data.size() + tailLength;
    sink({id, name, {}, std::move(data), note, length});
}

std::unique_ptr<Decoder> makeDecoder(Family family) {
    if (family == Family::kOki) {
        return std::make_unique<OkiDecoder>();
    }
    return std::make_unique<OliDecoder>();
}

}  // namespace passbook::wire
