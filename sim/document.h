#pragma once

#include <cstdint>
#include <functional>
#include <span>

namespace passbook::sim {

class Page;

/// One side of a document as it lies under the scanner, row by row: a picture from a file, a printed page, or whatever
/// a test wants to be there, however large.
struct Document {
    int width = 0;  // pixels
    int height = 0;
    /// Fills in row `y` from the top: blue, green and red of each pixel.
    std::function<void(int y, std::span<std::uint8_t> bgr)> row{};

    [[nodiscard]] bool empty() const { return width <= 0 || height <= 0 || !row; }
};

/// The paper of a page with what has been printed on it until now.
[[nodiscard]] Document documentFromPage(const Page& page);

[[nodiscard]] Document blankDocument(int width, int height);

}  // namespace passbook::sim
