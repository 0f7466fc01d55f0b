#include "wire/oki.h"

namespace passbook::wire {

namespace {

bool endsBlock(std::span<const std::uint8_t> data) {
    return data.size() >= 2 && data[data.size() - 2] == esc && data.back() == 'Z';
}

}  // namespace

bool OkiDecoder::beginData(const Row& row, std::span<const std::uint8_t> head) {
    inBitmap_ = row.shape == Shape::columns;
    wanted_ = inBitmap_ ? columnBytes * static_cast<std::size_t>(numbersOf(row, head).front()) : 0;
    return !inBitmap_ || wanted_ > 0;
}

void OkiDecoder::feedData(std::uint8_t byte, const CommandSink& sink) {
    data_.push_back(byte);
    if (inBitmap_ ? data_.size() == wanted_ : endsBlock(data_)) {
        endData();
        emitData(0, {}, sink);
    } else if (!inBitmap_ && data_.size() == maxConfiguration) {
        // The end was lost: the next bytes are more likely commands than a block of that size.
        endData();
        emitData(0, "too long", sink);
    }
}

void OkiDecoder::finishData(const CommandSink& sink) {
    emitData(0, "no end", sink);
}

}  // namespace passbook::wire
