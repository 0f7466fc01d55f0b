#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "wire/command.h"

namespace passbook::wire {

// What follows the fixed bytes of a command.
enum class Shape : std::uint8_t {
    kNone,
    kDigits,  // `width` decimal digits: one number
    kChoice,  // one byte out of `choices`: one number, the byte itself
    kByte,    // one byte, any but ESC: one number, the byte itself
    kCount,   // `width` bytes of any value, the high one first: one number

    // The rest are followed by data.
    kBitmap,         // columns up to ESC 2
    kStripe,         // up to GS ESC backslash
    kColumns,        // a kCount of columns, then the columns
    kConfiguration,  // up to ESC Z
};

// A column of a bitmap run: 24 dots.
inline constexpr std::size_t kColumnBytes = 3;

inline constexpr std::uint8_t kEsc = 0x1B;
inline constexpr std::uint8_t kFs = 0x1C;
inline constexpr std::uint8_t kGs = 0x1D;

// One row of a command set. The fixed bytes are a string_view with its length, since some hold a zero.
struct Row {
    CommandId id;
    std::string_view name;
    std::string_view fixed;
    Shape shape = Shape::kNone;
    std::uint8_t width = 0;
    std::string_view choices{};
    int value = -1;  // number of a command that has none on the line
};

[[nodiscard]] constexpr bool hasData(const Row& row) {
    return row.shape >= Shape::kBitmap;
}

// How far a sequence agrees with a command set.
enum class Match { kNone, kPartial, kWhole };

struct Lookup {
    Match match = Match::kNone;
    const Row* row = nullptr;  // the row of a whole match
};

[[nodiscard]] Lookup lookUp(std::span<const Row> table, std::span<const std::uint8_t> sequence);

// The numbers of a sequence that matched `row` whole.
[[nodiscard]] std::vector<int> numbersOf(const Row& row, std::span<const std::uint8_t> sequence);

// True if no row's fixed bytes begin another's: otherwise the shorter command would end the longer one early
// and the table could not be decoded byte by byte.
consteval bool prefixFree(std::span<const Row> table) {
    for (std::size_t a = 0; a < table.size(); ++a) {
        for (std::size_t b = 0; b < table.size(); ++b) {
            if (a != b && table[b].fixed.starts_with(table[a].fixed)) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace passbook::wire
