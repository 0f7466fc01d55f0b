// How much of the page a text takes.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace passbook::tool {

/// How text looks; as YARDO_PR2_SetFormat takes it.
struct TextFormat {
    int pitch = 15;  // Latin characters an inch; an initialised OLI printer has 15, an OKI printer 10
    bool bold = false;
    int width = 0;
    int height = 0;
};

/// Part of a page, in dots of 1/180 inch.
struct Box {
    int left = 0, top = 0, right = 0, bottom = 0;  // the last two are outside
    [[nodiscard]] bool meets(const Box& other) const {
        return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
    }
};

/// The box of a line whose upper left corner is at a place. A Chinese character takes two cells.
[[nodiscard]] Box boxOf(std::string_view utf8, const TextFormat& format, int xDots, int yDots);

/// The characters of a text that a printer has no place for in its character set: control characters, and those that
/// GB 18030 has beyond its one- and two-byte codes. Without a value the text is not UTF-8.
[[nodiscard]] std::optional<std::vector<std::string>> missingCharacters(std::string_view utf8);

}  // namespace passbook::tool
