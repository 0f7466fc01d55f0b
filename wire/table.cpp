#include "wire/table.h"

#include <algorithm>

namespace passbook::wire {

namespace {

std::size_t parameterLength(const Row& row) {
    switch (row.shape) {
        case Shape::digits:
        case Shape::numbers:
        case Shape::count:
        case Shape::columns:
            return row.width;
        case Shape::choice:
        case Shape::byte:
            return 1;
        default:
            return 0;
    }
}

bool fits(const Row& row, std::uint8_t parameter) {
    switch (row.shape) {
        case Shape::digits:
            return parameter >= '0' && parameter <= '9';
        case Shape::choice:
            return row.choices.find(static_cast<char>(parameter)) != std::string_view::npos;
        case Shape::byte:
            // An ESC here begins the next command: this one was cut short.
            return parameter != esc;
        default:
            return true;
    }
}

bool startsWith(std::string_view text, std::span<const std::uint8_t> bytes) {
    return std::equal(
        bytes.begin(), bytes.end(), text.begin(),
        [](std::uint8_t byte, char c) { return byte == static_cast<std::uint8_t>(c); });
}

Match matchRow(const Row& row, std::span<const std::uint8_t> sequence) {
    const std::size_t common = std::min(row.fixed.size(), sequence.size());
    if (!startsWith(row.fixed, sequence.first(common)))
        return Match::none;
    const std::span<const std::uint8_t> rest = sequence.subspan(common);
    const std::size_t wanted = parameterLength(row);
    const std::span<const std::uint8_t> parameters = rest.first(std::min(wanted, rest.size()));
    const std::span<const std::uint8_t> tail = rest.subspan(parameters.size());
    if (tail.size() > row.tail.size() || !startsWith(row.tail, tail) ||
        !std::all_of(parameters.begin(), parameters.end(), [&](std::uint8_t b) { return fits(row, b); }))
        return Match::none;
    return sequence.size() == row.fixed.size() + wanted + row.tail.size() ? Match::whole : Match::partial;
}

}  // namespace

Lookup lookUp(std::span<const Row> table, std::span<const std::uint8_t> sequence) {
    Lookup found;
    for (const Row& row : table) {
        const Match match = matchRow(row, sequence);
        if (match == Match::whole)
            return {match, &row};
        if (match == Match::partial)
            found.match = match;
    }
    return found;
}

std::vector<int> numbersOf(const Row& row, std::span<const std::uint8_t> sequence) {
    const std::span<const std::uint8_t> parameters = sequence.subspan(row.fixed.size(), parameterLength(row));
    switch (row.shape) {
        case Shape::digits:
        case Shape::count:
        case Shape::columns: {
            const bool digits = row.shape == Shape::digits;
            int number = 0;
            for (const std::uint8_t part : parameters)
                number = digits ? number * 10 + (part - '0') : number * 256 + part;
            return {number};
        }
        case Shape::choice:
        case Shape::byte:
        case Shape::numbers:
            return {parameters.begin(), parameters.end()};
        default:
            break;
    }
    return row.value >= 0 ? std::vector<int>{row.value} : std::vector<int>{};
}

}  // namespace passbook::wire
