#include "wire/oli.h"

#include <algorithm>
#include <array>
#include <utility>

namespace passbook::wire {

namespace {

constexpr std::array<std::uint8_t, 3> kStripeEnd{kGs, kEsc, '\\'};
constexpr std::size_t kRunEndLength = 2;  // ESC 2
constexpr std::size_t kColumnBytes = 3;

// A byte that a faulty command takes along with it. Control bytes and the lead bytes of text do not belong:
// they begin something of their own, which would be lost with them.
bool isCommandByte(std::uint8_t byte) {
    return byte >= 0x20 && byte <= 0x7F;
}

std::string_view nameOf(CommandId id) {
    switch (id) {
        case CommandId::kBitmapRun:
            return "bitmap-run";
        case CommandId::kStripeWrite:
            return "stripe-write";
        case CommandId::kMalformedBitmap:
            return "malformed-bitmap";
        default:
            return "malformed-stripe";
    }
}

}  // namespace

void OliDecoder::feed(std::span<const std::uint8_t> bytes, const CommandSink& sink) {
    for (const std::uint8_t byte : bytes) {
        feedByte(byte, sink);
    }
}

void OliDecoder::finish(const CommandSink& sink) {
    switch (state_) {
        case State::kGround:
            flushText(sink);
            break;
        case State::kSequence:
            emitUnknown(sequence_, "cut short", sink);
            break;
        case State::kBitmap:
            emitData(CommandId::kMalformedBitmap, escapeSeen_ ? 1 : 0, "no end", sink);
            break;
        case State::kStripe:
            emitData(CommandId::kMalformedStripe, 0, "no end", sink);
            break;
    }
    sequence_.clear();
    state_ = State::kGround;
}

void OliDecoder::feedByte(std::uint8_t byte, const CommandSink& sink) {
    switch (state_) {
        case State::kGround:
            feedGround(byte, sink);
            break;
        case State::kSequence:
            feedSequence(byte, sink);
            break;
        case State::kBitmap:
            feedBitmap(byte, sink);
            break;
        case State::kStripe:
            feedStripe(byte, sink);
            break;
    }
}

void OliDecoder::feedGround(std::uint8_t byte, const CommandSink& sink) {
    switch (text_.add(byte)) {
        case TextRun::Result::kTaken:
            if (text_.wholeSize() >= kMaxText) {
                // Only the whole characters go; one that has just begun stays for the next piece.
                std::vector<std::uint8_t> whole = text_.takeWhole();
                const std::size_t length = whole.size();
                sink({CommandId::kText, "text", {}, std::move(whole), {}, length});
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

void OliDecoder::feedSequence(std::uint8_t byte, const CommandSink& sink) {
    sequence_.push_back(byte);
    const Lookup found = lookUp(oliTable(), sequence_);
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

void OliDecoder::begin(const Row& row, const CommandSink& sink) {
    if (row.shape == Shape::kBitmap || row.shape == Shape::kStripe) {
        state_ = row.shape == Shape::kBitmap ? State::kBitmap : State::kStripe;
        headLength_ = sequence_.size();
        escapeSeen_ = false;
        cut_ = false;
        return;
    }
    sink({row.id, row.name, numbersOf(row, sequence_), {}, {}, sequence_.size()});
}

void OliDecoder::feedBitmap(std::uint8_t byte, const CommandSink& sink) {
    if (escapeSeen_) {
        state_ = State::kGround;
        if (byte != '2') {
            // The data never holds an ESC, so this is the next command after a run that was broken off.
            emitData(CommandId::kMalformedBitmap, 0, "broken off by another command", sink);
            feedByte(kEsc, sink);
            feedByte(byte, sink);
        } else if (cut_) {
            emitData(CommandId::kMalformedBitmap, kRunEndLength, "too long", sink);
        } else if (data_.size() % kColumnBytes != 0) {
            emitData(CommandId::kMalformedBitmap, kRunEndLength, "half a column", sink);
        } else {
            emitData(CommandId::kBitmapRun, kRunEndLength, {}, sink);
        }
        return;
    }
    if (byte == kEsc) {
        escapeSeen_ = true;
        return;
    }
    data_.push_back(byte);
    if (data_.size() == kMaxBitmap) {
        cut_ = true;
        emitData(CommandId::kMalformedBitmap, 0, "too long", sink);
    }
}

void OliDecoder::feedStripe(std::uint8_t byte, const CommandSink& sink) {
    data_.push_back(byte);
    const auto tail = data_.end() - static_cast<std::ptrdiff_t>(std::min(kStripeEnd.size(), data_.size()));
    if (std::equal(tail, data_.end(), kStripeEnd.begin(), kStripeEnd.end())) {
        data_.erase(tail, data_.end());
        state_ = State::kGround;
        emitData(CommandId::kStripeWrite, kStripeEnd.size(), {}, sink);
    } else if (data_.size() == kMaxStripe) {
        // No stripe holds as much: the end was lost, and what comes is more likely commands than data.
        state_ = State::kGround;
        emitData(CommandId::kMalformedStripe, 0, "too long", sink);
    }
}

void OliDecoder::flushText(const CommandSink& sink) {
    std::vector<std::uint8_t> whole = text_.takeWhole();
    if (!whole.empty()) {
        const std::size_t length = whole.size();
        sink({CommandId::kText, "text", {}, std::move(whole), {}, length});
    }
    const std::vector<std::uint8_t> partial = text_.takePartial();
    if (!partial.empty()) {
        emitUnknown(partial, "half a character", sink);
    }
}

void OliDecoder::emitUnknown(std::span<const std::uint8_t> bytes, std::string_view note,
                             const CommandSink& sink) {
    sink({CommandId::kUnknown, "unknown", {}, {bytes.begin(), bytes.end()}, note, bytes.size()});
}

void OliDecoder::emitData(CommandId id, std::size_t tailLength, std::string_view note,
                          const CommandSink& sink) {
    std::vector<std::uint8_t> data = std::exchange(data_, {});
    const std::size_t length = std::exchange(headLength_, 0) + data.size() + tailLength;
    sink({id, nameOf(id), {}, std::move(data), note, length});
}

}  // namespace passbook::wire
