#include "wire/oli.h"

#include <algorithm>
#include <array>

namespace passbook::wire {

namespace {

constexpr std::array<std::uint8_t, 3> stripeEnd{gs, esc, '\\'};
constexpr std::size_t runEndLength = 2;  // ESC 2

}  // namespace

bool OliDecoder::beginData(const Row& row, std::span<const std::uint8_t>) {
    inStripe_ = row.shape == Shape::stripe;
    escapeSeen_ = false;
    cut_ = false;
    return true;
}

void OliDecoder::feedData(std::uint8_t byte, const CommandSink& sink) {
    if (inStripe_)
        feedStripe(byte, sink);
    else
        feedBitmap(byte, sink);
}

void OliDecoder::finishData(const CommandSink& sink) {
    emitData(escapeSeen_ ? 1 : 0, "no end", sink);
}

void OliDecoder::feedBitmap(std::uint8_t byte, const CommandSink& sink) {
    if (escapeSeen_) {
        endData();
        if (byte == '2') {
            const bool whole = data_.size() % columnBytes == 0;
            emitData(runEndLength, cut_ ? "too long" : whole ? "" : "half a column", sink);
            return;
        }
        // The data never hold an ESC. So this is the next command, and the run was broken off.
        emitData(0, "broken off by another command", sink);
        feedByte(esc, sink);
        feedByte(byte, sink);
        return;
    }
    if (byte == esc) {
        escapeSeen_ = true;
        return;
    }
    data_.push_back(byte);
    if (data_.size() == maxBitmap) {
        cut_ = true;
        emitData(0, "too long", sink);
    }
}

void OliDecoder::feedStripe(std::uint8_t byte, const CommandSink& sink) {
    data_.push_back(byte);
    const auto tail = data_.end() - static_cast<std::ptrdiff_t>(std::min(stripeEnd.size(), data_.size()));
    if (std::equal(tail, data_.end(), stripeEnd.begin(), stripeEnd.end())) {
        data_.erase(tail, data_.end());
        endData();
        emitData(stripeEnd.size(), {}, sink);
    } else if (data_.size() == maxStripe) {
        // No stripe holds so much. The end was lost: the next bytes are more likely commands than data.
        endData();
        emitData(0, "too long", sink);
    }
}

}  // namespace passbook::wire
