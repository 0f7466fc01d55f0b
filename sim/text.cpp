#include "sim/text.h"

#include <glib.h>

#include <algorithm>
#include <array>
#include <memory>

#include "wire/text.h"

namespace passbook::sim {

namespace {

constexpr const char* replacement = "\xEF\xBF\xBD";

struct CloseConverter {
    void operator()(std::remove_pointer_t<GIConv>* converter) const { g_iconv_close(converter); }
};
using Converter = std::unique_ptr<std::remove_pointer_t<GIConv>, CloseConverter>;

/// Null if the system knows no GB18030.
Converter openConverter() {
    // The interface says "failed" with a pointer of all ones, which must not be closed.
    const GIConv opened = g_iconv_open("UTF-8", "GB18030");
    const auto failed = reinterpret_cast<GIConv>(-1);
    return Converter(opened == failed ? nullptr : opened);
}

std::string convert(GIConv converter, std::span<const std::uint8_t> character) {
    if (character.size() == 1 && character[0] < 0x80)
        return {static_cast<char>(character[0])};
    if (converter == nullptr)
        return replacement;
    std::array<char, 8> in{};
    std::array<char, 16> out{};
    std::copy(character.begin(), character.end(), in.begin());
    char* from = in.data();
    char* to = out.data();
    gsize fromLeft = character.size();
    gsize toLeft = out.size();
    const gsize converted = g_iconv(converter, &from, &fromLeft, &to, &toLeft);
    if (converted == static_cast<gsize>(-1) || fromLeft != 0 || toLeft == out.size()) {
        // What a failed character left behind must not reach the next one.
        g_iconv(converter, nullptr, nullptr, nullptr, nullptr);
        return replacement;
    }
    return {out.data(), out.size() - toLeft};
}

}  // namespace

std::vector<Character> charactersOf(std::span<const std::uint8_t> text) {
    std::vector<Character> characters;
    const Converter converter = openConverter();
    while (!text.empty()) {
        const std::size_t length = wire::characterLength(text);
        characters.push_back({convert(converter.get(), text.first(length)), length > 1});
        text = text.subspan(length);
    }
    return characters;
}

std::string toUtf8(std::span<const std::uint8_t> text) {
    std::string whole;
    for (const Character& character : charactersOf(text))
        whole += character.utf8;
    return whole;
}

std::string toHex(std::span<const std::uint8_t> bytes, std::size_t limit) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string hex;
    for (const std::uint8_t byte : bytes.first(std::min(limit, bytes.size()))) {
        if (!hex.empty())
            hex += ' ';
        hex += digits[byte >> 4];
        hex += digits[byte & 0x0F];
    }
    if (bytes.size() > limit)
        hex += " ...";
    return hex;
}

}  // namespace passbook::sim
