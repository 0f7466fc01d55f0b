#include "wire/oli.h"

#include <algorithm>
#include <array>

namespace passbook::wire {

namespace {

constexpr std::array<std::uint8_t, 3> kStripeEnd{kGs, kEsc, '\\'};
constexpr std::size_t kRunEndLength = 2;  // ESC 2
constexpr std::string_view kMalformedRun = "malformed-bitmap";
constexpr std::string_view kMalformedStripe = "malformed-stripe";

}  // namespace

bool OliDecoder::beginData(const Row& row, std::span<const std::uint8_t>) {
    inStripe_ = row.shape == Shape::kStripe;
    escapeSeen_ = false;
    cut_ = false;
    return true;
}

void OliDecoder::feedData(std::uint8_t byte, const CommandSink& sink) {
    if (inStripe_) {
        feedStripe(byte, sink);
    } else {
        feedBitmap(byte, sink);
    }
}

void OliDecoder::finishData(const CommandSink& sink) {
    if (inStripe_) {
        emitData(CommandId::kMalformedStripe, kMalformedStripe, 0, "no end", sink);
    } else {
        emitData(CommandId::kMalformedBitmap, kMalformedRun, escapeSeen_ ? 1 : 0, "no end", sink);
    }
}

void OliDecoder::feedBitmap(std::uint8_t byte, const CommandSink& sink) {
    if (escapeSeen_) {
        endData();
        if (byte != '2') {
            // The data never holds an ESC, so this is the next command after a run that was broken off.
            emitData(CommandId::kMalformedBitmap, kMalformedRun, 0, "broken off by another command", sink);
            feedByte(kEsc, sink);
            feedByte(byte, sink);
        } else if (cut_) {
            emitData(CommandId::kMalformedBitmap, kMalformedRun, kRunEndLength, "too long", sink);
        } else if (data_.size() % kColumnBytes != 0) {
            emitData(CommandId::kMalformedBitmap, kMalformedRun, kRunEndLength, "half a column", sink);
        } else {
            emitData(CommandId::kBitmapRun, "bitmap-run", kRunEndLength, {}, sink);
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
        emitData(CommandId::kMalformedBitmap, kMalformedRun, 0, "too long", sink);
    }
}

void OliDecoder::feedStripe(std::uint8_t byte, const CommandSink& sink) {
    data_.push_back(byte);
    const auto tail = data_.end() - static_cast<std::ptrdiff_t>(std::min(kStripeEnd.size(), data_.size()));
    if (std::equal(tail, data_.end(), kStripeEnd.begin(), kStripeEnd.end())) {
        data_.erase(tail, data_.end());
        endData();
        emitData(CommandId::kStripeWrite, "stripe-write", kStripeEnd.size(), {}, sink);
    } else if (data_.size() == kMaxStripe) {
        // No stripe holds as much: the end was lost, and what comes is more likely commands than data.
        endData();
        emitData(CommandId::kMalformedStripe, kMalformedStripe, 0, "too long", sink);
    }
}

}  // namespace passbook::wire
