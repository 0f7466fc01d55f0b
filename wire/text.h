#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace passbook::wire {

// A run of GB18030 text that grows byte by byte and never ends inside a character.
class TextRun {
 public:
    enum class Result {
        kTaken,    // the byte belongs to the text
        kNotText,  // the byte belongs to no text; the run is whole up to here
        kBroken,   // the byte can't follow the begun character, which stays in partial()
    };

    [[nodiscard]] Result add(std::uint8_t byte);

    [[nodiscard]] bool empty() const { return whole_.empty() && partial_.empty(); }
    [[nodiscard]] std::size_t wholeSize() const { return whole_.size(); }

    // Hands over the whole characters, or the bytes of the begun one.
    [[nodiscard]] std::vector<std::uint8_t> takeWhole();
    [[nodiscard]] std::vector<std::uint8_t> takePartial();

 private:
    std::vector<std::uint8_t> whole_;
    std::vector<std::uint8_t> partial_;
};

// Length of the first character of a text that came out of a TextRun: 1, 2 or 4; 0 of an empty text.
[[nodiscard]] std::size_t characterLength(std::span<const std::uint8_t> text);

}  // namespace passbook::wire
