#include "wire/oki.h"

#include <array>

namespace passbook::wire {

namespace {

constexpr std::array<std::uint8_t, 2> kConfigurationEnd{kEsc, 'Z'};
constexpr std::string_view kMalformedConfiguration = "malformed-configuration";

bool endsBlock(std::span<const std::uint8_t> data) {
    return data.size() >= 2 && data[data.size() - 2] == kConfigurationEnd[0] &&
           data.back() == kConfigurationEnd[1];
}

}  // namespace

bool OkiDecoder::beginData(const Row& row, std::span<const std::uint8_t> head) {
    inBitmap_ = row.shape == Shape::kColumns;
    wanted_ = inBitmap_ ? kColumnBytes * static_cast<std::size_t>(numbersOf(row, head).front()) : 0;
    return !inBitmap_ || wanted_ > 0;
}

void OkiDecoder::feedData(std::uint8_t byte, const CommandSink& sink) {
    data_.push_back(byte);
    if (inBitmap_) {
        if (data_.size() == wanted_) {
            endData();
            emitData(CommandId::kBitmapRun, "bitmap-run", 0, {}, sink);
        }
    } else if (endsBlock(data_)) {
        endData();
        emitData(CommandId::kConfigurationWrite, "configuration-write", 0, {}, sink);
    } else if (data_.size() == kMaxConfiguration) {
        // The end was lost, and what comes is more likely commands than a block of that size.
        endData();
        emitData(CommandId::kMalformedConfiguration, kMalformedConfiguration, 0, "too long", sink);
    }
}

void OkiDecoder::finishData(const CommandSink& sink) {
    if (inBitmap_) {
        emitData(CommandId::kMalformedBitmap, "malformed-bitmap", 0, "no end", sink);
    } else {
        emitData(CommandId::kMalformedConfiguration, kMalformedConfiguration, 0, "no end", sink);
    }
}

}  // namespace passbook::wire
