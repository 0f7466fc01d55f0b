// The pages that are measured.
#pragma once

#include <string>
#include <vector>

namespace passbook::bench {

struct Size {
    const char* name;
    int width, height;
};
/// A page of 150 x 200 mm and one of 210 x 297 mm at 180 dots per inch, and A4 at 600.
inline constexpr Size sizes[] = {{"a", 1063, 1417}, {"b", 1488, 2105}, {"c", 4960, 7016}};

/// Text on paper as a scanner sees it, or a photograph of which half is darker than the threshold.
enum class Kind { text, photo };

/// The page's rows, from the top: blue, green and red, or one grey byte a pixel, with fill bytes up to a multiple of 4.
std::vector<unsigned char> pixels(const Size& size, Kind kind, bool grey);

/// Writes the text page as `NAME.bmp` (24 bits), `NAME-grey.bmp` (8 bits, with a grey colour table), `NAME.jpg` (quality 85), `NAME.png` and `NAME.ppm`. False when that fails.
bool writePages(const Size& size, const std::string& directory);

}  // namespace passbook::bench
