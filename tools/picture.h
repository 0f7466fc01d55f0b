// Pictures as a passbook printer prints them: one dot of 1/180 inch is ink or not.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "tools/family.h"

namespace passbook::tool {

/// What a picture is to become.
struct PictureWish {
    double widthMm = 0;     // 0: a pixel is a dot
    double fitWidthMm = 0;  // with fitHeightMm: made smaller, never larger, so that it fits; 0: no bound
    double fitHeightMm = 0;
    int turnDegrees = 0;  // clockwise: 0, 90, 180, 270; after what EXIF says
    bool dither = false;  // Floyd-Steinberg in place of a threshold
    int threshold = 200;  // a grey value below it is ink
};

struct Picture {
    int width = 0, height = 0;        // dots
    std::vector<std::uint8_t> ink{};  // a byte a dot, row by row: 1 ink, 0 none

    [[nodiscard]] bool at(int x, int y) const {
        return ink[static_cast<std::size_t>(y) * static_cast<std::size_t>(width) + static_cast<std::size_t>(x)] != 0;
    }
    /// Whether no dot is ink.
    [[nodiscard]] bool blank() const;

    /// Reads any file that gdk-pixbuf can. Transparency is on white. A file that is not whole is
    /// refused. At most 32767 x 32767 pixels, and 100 million in
    /// all. Without a value `problem` says why.
    [[nodiscard]] static std::optional<Picture> load(const std::string& path, const PictureWish& wish,
                                                     std::string& problem);

    /// Whether a printer of that family can print it with its upper left corner there. Returns what is wrong, or an
    /// empty text. A picture that is too far right would be printed in part.
    [[nodiscard]] std::string problemAt(Family family, int xDots, int yDots) const;

    /// Writes it as a BMP of one bit a pixel, with `left` blank columns and `top` blank rows around it, and blank
    /// columns at the right up to a multiple of eight: so the driver prints every dot, on the dot. Returns what is
    /// wrong, or an empty text.
    [[nodiscard]] std::string save(const std::string& path, int left, int top) const;
};

/// "105x74.5" as millimetres, both above 0; nothing if it is something else.
[[nodiscard]] std::optional<std::pair<double, double>> sizeFrom(const std::string& text);

}  // namespace passbook::tool
