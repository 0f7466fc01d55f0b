#include <algorithm>
#include <limits>

#include "sim/family.h"

namespace passbook::sim {

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint32_t largestSize = std::numeric_limits<std::uint32_t>::max();

/// Which of how many sides, a byte without meaning, and the size, lowest byte first.
Bytes header(std::size_t side, const ScanBytes* bytes, int sizeError) {
    Bytes piece{5, static_cast<std::uint8_t>(side + 1), 2, 0};
    const std::int64_t size = bytes == nullptr ? 0 : static_cast<std::int64_t>(bytes->size()) + sizeError;
    const std::int64_t announced = std::clamp<std::int64_t>(size, 0, largestSize);
    for (int shift = 0; shift < 32; shift += 8)
        piece.push_back(static_cast<std::uint8_t>(announced >> shift));
    return piece;
}

Bytes end(std::int64_t) {
    return {6};
}

Bytes paperAnswer(PaperState state) {
    return {wire::esc, 'S', static_cast<std::uint8_t>(state == PaperState::inPlace ? 0 : 1), 0};
}

}  // namespace

/// Of each side a header together with the first block, further blocks, and an end byte. Hosts take reads of 1 byte for
/// the end, and drop those of 8.
const FamilyRules okiRules{.slot = Paper::Slot::drawsIn,
                           .dotOrder = DotOrder::upperHighest,
                           .paperStatus = {2, 2, 2, 1},
                           .paperAnswer = paperAnswer,
                           .scanStart = wire::CommandId::scanStart,
                           .scan = {.form = ScanBytes::Form::bitmap,
                                    .mostBytes = largestSize,
                                    .smallestBlock = 2,
                                    .misleading = {1, 8},
                                    .header = header,
                                    .headsUnwanted = true,
                                    .firstRead = 2048,
                                    .start = nullptr,
                                    .end = end}};

}  // namespace passbook::sim
