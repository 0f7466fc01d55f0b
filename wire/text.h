// GB18030 text on the line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace passbook::wire {

/// A run of GB18030 text that grows byte by byte and never ends inside a character.
class TextRun {
 public:
    enum class Result {
        taken,    // the byte belongs to the text
        notText,  // the byte belongs to no text, and the run ends with a whole character
        broken,   // the byte cannot follow the character that has begun
    };

    [[nodiscard]] Result add(std::uint8_t byte);

    [[nodiscard]] bool empty() const { return whole_.empty() && partial_.empty(); }
    [[nodiscard]] std::size_t wholeSize() const { return whole_.size(); }

    /// Hands over the whole characters, or the bytes of one that has begun.
    [[nodiscard]] std::vector<std::uint8_t> takeWhole();
    [[nodiscard]] std::vector<std::uint8_t> takePartial();

 private:
    std::vector<std::uint8_t> whole_;
    std::vector<std::uint8_t> partial_;
};

/// The bytes of the first character of a text that came out of a TextRun: 1, 2 or 4; 0 when the text is empty.
[[nodiscard]] std::size_t characterLength(std::span<const std::uint8_t> text);

}  // namespace passbook::wire
