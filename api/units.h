// From the host's units to dots of 1/180 inch.
#pragma once

#include <algorithm>
#include <cstdint>
#include <limits>

namespace passbook {

/// Dots beyond int are beyond everything that a printer can be told as well; the nearest int is refused or
/// kept within bounds like them, and never wraps round to a place on the paper.
[[nodiscard]] inline int saturate(std::int64_t dots) {
    return static_cast<int>(
        std::clamp<std::int64_t>(dots, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

/// The product in integers, the quotient in double precision, truncated toward zero: this order decides on
/// which dot a line lands.
[[nodiscard]] inline int dotsFromMillimetres(std::int64_t millimetres) {
    return saturate(static_cast<std::int64_t>(static_cast<double>(millimetres * 180) / 25.4));
}

[[nodiscard]] inline int dotsFromInches(std::int64_t inches) {
    return saturate(inches * 180);
}

}  // namespace passbook
