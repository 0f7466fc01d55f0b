// Command sets as tables.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "wire/command.h"

namespace passbook::wire {

/// What follows the fixed bytes of a command.
enum class Shape : std::uint8_t {
    none,
    digits,   // `width` decimal digits: one number
    choice,   // one byte out of `choices`: one number, the byte itself
    byte,     // one byte, any but ESC: one number, the byte itself
    numbers,  // `width` bytes of any value: a number each
    count,    // `width` bytes of any value, the high one first: one number

    // Data follow these.
    bitmap,         // columns up to ESC 2
    stripe,         // up to GS ESC backslash
    columns,        // a count of columns, then the columns
    configuration,  // up to ESC Z
};

/// A column of a bitmap run: 24 dots.
inline constexpr std::size_t columnBytes = 3;

inline constexpr std::uint8_t esc = 0x1B;
inline constexpr std::uint8_t gs = 0x1D;

/// One command of a command set. `fixed` are the bytes that it begins with; some of them are zero.
struct Row {
    CommandId id;
    std::string_view name;
    std::string_view fixed;
    Shape shape = Shape::none;
    std::uint8_t width = 0;
    std::string_view choices{};
    int value = -1;           // the number of a command that has none on the line
    std::string_view tail{};  // behind the parameters
};

[[nodiscard]] constexpr bool hasData(const Row& row) {
    return row.shape >= Shape::bitmap;
}

/// How far a sequence agrees with a command set.
enum class Match { none, partial, whole };

struct Lookup {
    Match match = Match::none;
    const Row* row = nullptr;  // of a whole match
};

[[nodiscard]] Lookup lookUp(std::span<const Row> table, std::span<const std::uint8_t> sequence);

/// The numbers of a sequence that matched `row` whole.
[[nodiscard]] std::vector<int> numbersOf(const Row& row, std::span<const std::uint8_t> sequence);

/// Whether no row's fixed bytes begin those of another row. If they did, the shorter command would always end the longer
/// one early.
consteval bool prefixFree(std::span<const Row> table) {
    for (std::size_t a = 0; a < table.size(); ++a) {
        for (std::size_t b = 0; b < table.size(); ++b)
            if (a != b && table[b].fixed.starts_with(table[a].fixed))
                return false;
    }
    return true;
}

}  // namespace passbook::wire
