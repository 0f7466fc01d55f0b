// Printer commands as constants: spelled as text, with the control characters by name.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>

namespace passbook {

/// A command of N bytes.
template <std::size_t N>
using Bytes = std::array<unsigned char, N>;

/// Control characters, for commands and inside of them.
inline constexpr unsigned char escapeByte = 0x1B;
inline constexpr Bytes<1> bell{0x07};
inline constexpr Bytes<1> backspace{0x08};
inline constexpr Bytes<1> lineFeed{0x0A};
inline constexpr Bytes<1> formFeed{0x0C};
inline constexpr Bytes<1> carriageReturn{0x0D};
inline constexpr Bytes<1> cancel{0x18};

/// The arrays one behind the other.
template <std::size_t... N>
[[nodiscard]] constexpr auto joined(const std::array<unsigned char, N>&... parts) {
    std::array<unsigned char, (N + ...)> whole{};
    auto to = whole.begin();
    ((to = std::copy(parts.begin(), parts.end(), to)), ...);
    return whole;
}

/// A control character and printable text behind it. Anything else in the text does not compile: a hexadecimal escape
/// there takes in the letters that follow it.
template <std::size_t N>
[[nodiscard]] consteval Bytes<N> introduced(unsigned char by, const char (&text)[N]) {
    static_assert(N > 1, "a command has a letter at least");
    Bytes<N> bytes{by};
    for (std::size_t i = 0; i + 1 < N; ++i) {
        if (text[i] < 0x20 || text[i] > 0x7E)
            throw "not printable";  // ends the compilation
        bytes[i + 1] = static_cast<unsigned char>(text[i]);
    }
    return bytes;
}

/// ESC and text: esc("0") is 1B 30.
template <std::size_t N>
[[nodiscard]] consteval Bytes<N> esc(const char (&text)[N]) {
    return introduced(escapeByte, text);
}

/// FS and text: fs("j") is 1C 6A.
template <std::size_t N>
[[nodiscard]] consteval Bytes<N> fs(const char (&text)[N]) {
    return introduced(0x1C, text);
}

}  // namespace passbook
