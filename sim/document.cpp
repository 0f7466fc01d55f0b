#include "sim/document.h"

#include <algorithm>
#include <memory>
#include <vector>

#include "sim/page.h"

namespace passbook::sim {

Document documentFromPage(const Page& page) {
    constexpr std::size_t pixelBytes = 4;
    const auto pixels = std::make_shared<const std::vector<std::uint8_t>>(page.render());
    if (pixels->empty())
        return {};
    const auto stride = static_cast<std::size_t>(page.width()) * pixelBytes;
    const auto row = [pixels, stride](int y, std::span<std::uint8_t> bgr) {
        const std::uint8_t* from = pixels->data() + static_cast<std::size_t>(y) * stride;
        for (std::size_t at = 0; at + 3 <= bgr.size(); at += 3, from += pixelBytes)
            std::copy_n(from, 3, bgr.begin() + static_cast<std::ptrdiff_t>(at));
    };
    return {page.paperWidth(), page.paperHeight(), row};
}

Document blankDocument(int width, int height) {
    return {width, height,
            [](int, std::span<std::uint8_t> bgr) { std::fill(bgr.begin(), bgr.end(), std::uint8_t{0xFF}); }};
}

}  // namespace passbook::sim
