#include <algorithm>
#include <cstdio>
#include <limits>
#include <string>

#include "sim/family.h"

namespace passbook::sim {

namespace {

using Bytes = std::vector<std::uint8_t>;

/// A number as the messages carry it.
std::string fiveDigits(std::int64_t value) {
    std::array<char, 8> text{};
    std::snprintf(text.data(), text.size(), "%05d",
                  static_cast<int>(std::clamp<std::int64_t>(value, 0, maxScanPixels)));
    return text.data();
}

Bytes message(char kind, const std::string& content) {
    Bytes bytes(content.begin(), content.end());
    bytes.insert(bytes.begin(), static_cast<std::uint8_t>(kind));
    return bytes;
}

Bytes header(std::size_t, const ScanBytes* bytes, int sizeError) {
    const ScanImage& image = bytes->image();
    return message(1, fiveDigits(image.width()) + ' ' + fiveDigits(std::int64_t{image.height()} + sizeError));
}

Bytes start(std::size_t side) {
    return message(2, side == 0 ? "F" : "B");
}

Bytes end(std::int64_t rows) {
    return message(3, fiveDigits(rows));
}

/// Framed like the other long answers: what was asked, a fixed byte, the state, an end mark.
Bytes paperAnswer(PaperState state) {
    constexpr std::string_view states = "@ABC";  // none, ejected, at the entry, in place
    return {wire::esc, 'B', '5', static_cast<std::uint8_t>(states[static_cast<std::size_t>(state) - 1]),
            wire::esc, 'Z'};
}

}  // namespace

/// Of each side wanted a header, a start, blocks and an end. Hosts could take blocks of 6 bytes for the end.
const FamilyRules oliRules{.slot = Paper::Slot::fedByHost,
                           .dotOrder = DotOrder::upperLowest,
                           .paperStatus = {1, 2, 3, 4},
                           .paperAnswer = paperAnswer,
                           .scanStart = wire::CommandId::scanSides,
                           .scan = {.form = ScanBytes::Form::raw,
                                    .mostBytes = std::numeric_limits<std::uint64_t>::max(),
                                    .smallestBlock = 1,
                                    .misleading = {6, 6},
                                    .header = header,
                                    .headsUnwanted = false,
                                    .firstRead = 0,
                                    .start = start,
                                    .end = end}};

}  // namespace passbook::sim
