#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace passbook::sim {

/// A character of the printer's code set.
struct Character {
    std::string utf8;
    bool wide = false;  // takes two cells
};

/// The characters of a GB18030 text; what stands for none becomes U+FFFD.
[[nodiscard]] std::vector<Character> charactersOf(std::span<const std::uint8_t> text);

/// The same as one string.
[[nodiscard]] std::string toUtf8(std::span<const std::uint8_t> text);

/// "1B 7C 41", at most `limit` bytes and an ellipsis.
[[nodiscard]] std::string toHex(std::span<const std::uint8_t> bytes, std::size_t limit = 64);

}  // namespace passbook::sim
