#include "wire/decoder.h"

#include <utility>

#include "wire/oki.h"
#include "wire/oli.h"

namespace passbook::wire {

namespace {

/// Whether a byte that fits no command is part of the faulty command. Control bytes and lead bytes of text are not: they
/// begin something new, which would be lost with the faulty command.
bool isCommandByte(std::uint8_t byte) {
    return byte >= 0x20 && byte <= 0x7F;
}

void emitUnknown(std::span<const std::uint8_t> bytes, std::string_view note, const CommandSink& sink) {
    sink({CommandId::unknown, "unknown", {}, {bytes.begin(), bytes.end()}, note, bytes.size()});
}

struct Named {
    CommandId id;
    std::string_view name;
};

/// What a command with data is when there is something wrong with the data.
Named malformed(CommandId id) {
    switch (id) {
        case CommandId::bitmapRun:
            return {CommandId::malformedBitmap, "malformed-bitmap"};
        case CommandId::stripeWrite:
            return {CommandId::malformedStripe, "malformed-stripe"};
        case CommandId::configurationWrite:
            return {CommandId::malformedConfiguration, "malformed-configuration"};
        default:
            return {CommandId::unknown, "unknown"};
    }
}

}  // namespace

void Decoder::feed(std::span<const std::uint8_t> bytes, const CommandSink& sink) {
    for (const std::uint8_t byte : bytes)
        feedByte(byte, sink);
}

void Decoder::finish(const CommandSink& sink) {
    switch (std::exchange(state_, State::ground)) {
        case State::ground:
            flushText(sink);
            break;
        case State::sequence:
            emitUnknown(sequence_, "cut short", sink);
            break;
        case State::data:
            finishData(sink);
            break;
    }
    sequence_.clear();
}

void Decoder::feedByte(std::uint8_t byte, const CommandSink& sink) {
    switch (state_) {
        case State::ground:
            feedGround(byte, sink);
            break;
        case State::sequence:
            feedSequence(byte, sink);
            break;
        case State::data:
            feedData(byte, sink);
            break;
    }
}

void Decoder::feedGround(std::uint8_t byte, const CommandSink& sink) {
    switch (text_.add(byte)) {
        case TextRun::Result::taken:
            if (text_.wholeSize() >= maxText)
                handOnText(sink);
            return;
        case TextRun::Result::notText:
            flushText(sink);
            state_ = State::sequence;
            feedSequence(byte, sink);
            return;
        case TextRun::Result::broken: {
            // Only the lead byte is wrong for certain. The bytes behind it may be text.
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
        case Match::partial:
            return;
        case Match::whole:
            state_ = State::ground;
            begin(*found.row, sink);
            sequence_.clear();
            return;
        case Match::none:
            break;
    }
    std::vector<std::uint8_t> faulty = std::exchange(sequence_, {});
    state_ = State::ground;
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
        state_ = State::data;
        dataRow_ = &row;
        headLength_ = sequence_.size();
        return;
    }
    sink({row.id, row.name, numbersOf(row, sequence_), {}, {}, sequence_.size()});
}

void Decoder::handOnText(const CommandSink& sink) {
    std::vector<std::uint8_t> whole = text_.takeWhole();
    if (!whole.empty()) {
        const std::size_t length = whole.size();
        sink({CommandId::text, "text", {}, std::move(whole), {}, length});
    }
}

void Decoder::flushText(const CommandSink& sink) {
    handOnText(sink);
    const std::vector<std::uint8_t> partial = text_.takePartial();
    if (!partial.empty())
        emitUnknown(partial, "half a character", sink);
}

void Decoder::emitData(std::size_t tailLength, std::string_view note, const CommandSink& sink) {
    std::vector<std::uint8_t> data = std::exchange(data_, {});
    const std::size_t length = std::exchange(headLength_, 0) + data.size() + tailLength;
    const auto [id, name] = note.empty() ? Named{dataRow_->id, dataRow_->name} : malformed(dataRow_->id);
    sink({id, name, {}, std::move(data), note, length});
}

std::unique_ptr<Decoder> makeDecoder(Family family) {
    switch (family) {
        case Family::oli:
            return std::make_unique<OliDecoder>();
        case Family::oki:
            return std::make_unique<OkiDecoder>();
    }
    return nullptr;
}

}  // namespace passbook::wire
