#include "wire/table.h"

#include <algorithm>

namespace passbook::wire {

namespace {

std::size_t parameterLength(const Row& row) {
    switch (row.shape) {
        case Shape::kDigits:
        case Shape::kCount:
        case Shape::kColumns:
            return row.width;
        case Shape::kChoice:
        case Shape::kByte:
            return 1;
        default:
            return 0;
    }
}

bool fits(const Row& row, std::uint8_t parameter) {
    switch (row.shape) {
        case Shape::kDigits:
            return parameter >= '0' && parameter <= '9';
        case Shape::kChoice:
            return row.choices.find(static_cast<char>(parameter)) != std::string_view::npos;
        case Shape::kByte:
            // An ESC here is the next command after one that was cut short.
            return parameter != kEsc;
        default:
            return true;
    }
}

Match matchRow(const Row& row, std::span<const std::uint8_t> sequence) {
    const std::size_t common = std::min(row.fixed.size(), sequence.size());
    for (std::size_t i = 0; i < common; ++i) {
        if (static_cast<std::uint8_t>(row.fixed[i]) != sequence[i]) {
            return Match::kNone;
        }
    }
    const std::span<const std::uint8_t> parameters = sequence.subspan(common);
    const std::size_t wanted = parameterLength(row);
    if (parameters.size() > wanted ||
        !std::all_of(parameters.begin(), parameters.end(), [&](std::uint8_t b) { return fits(row, b); })) {
        return Match::kNone;
    }
    return common == row.fixed.size() && parameters.size() == wanted ? Match::kWhole : Match::kPartial;
}

}  // namespace

Lookup lookUp(std::span<const Row> table, std::span<const std::uint8_t> sequence) {
    Lookup found;
    for (const Row& row : table) {
        const Match match = matchRow(row, sequence);
        if (match == Match::kWhole) {
            return {match, &row};
        }
        if (match == Match::kPartial) {
            found.match = match;
        }
    }
    return found;
}

std::vector<int> numbersOf(const Row& row, std::span<const std::uint8_t> sequence) {
    const std::span<const std::uint8_t> parameters = sequence.subspan(row.fixed.size());
    switch (row.shape) {
        case Shape::kDigits:
        case Shape::kCount:
        case Shape::kColumns: {
            const bool digits = row.shape == Shape::kDigits;
            int number = 0;
            for (const std::uint8_t part : parameters) {
                number = digits ? number * 10 + (part - '0') : number * 256 + part;
            }
            return {number};
        }
        case Shape::kChoice:
        case Shape::kByte:
            return {parameters.front()};
        default:
            break;
    }
    return row.value >= 0 ? std::vector<int>{row.value} : std::vector<int>{};
}

}  // namespace passbook::wire
