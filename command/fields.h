// Numbers inside printer commands.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace passbook {

/// Writes `value` as decimal digits with leading zeros over the whole field. False, and nothing written, when
/// it is negative or has too many digits.
[[nodiscard]] constexpr bool putDecimal(std::span<unsigned char> field, std::int64_t value) {
    std::int64_t limit = 1;
    for (std::size_t i = 0; i < field.size(); ++i)
        limit *= 10;
    if (value < 0 || value >= limit)
        return false;
    for (std::size_t i = field.size(); i-- > 0; value /= 10)
        field[i] = static_cast<unsigned char>('0' + value % 10);
    return true;
}

/// Writes a count of 0 to 65535 as two bytes, the high one first.
constexpr void putHighFirst(std::span<unsigned char, 2> field, int value) {
    field[0] = static_cast<unsigned char>(value >> 8);
    field[1] = static_cast<unsigned char>(value);
}

}  // namespace passbook
