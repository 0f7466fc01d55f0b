#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace passbook::sim {

inline constexpr int dotsPerInch = 180;

/// The farthest ink can lie: what the position fields can reach, and a strip or a tall character below it.
inline constexpr int maxPageWidthDots = 1500;
inline constexpr int maxPageHeightDots = 7600;

/// A character at normal height, in dots.
inline constexpr int lineDots = 24;

[[nodiscard]] int mmToDots(double mm);
[[nodiscard]] double dotsToMm(double dots);

enum class Underline { none, single, doubled, heavy };

/// One character as it is to be drawn.
struct Glyph {
    std::string utf8;
    double xDots = 0;      // left edge of its cell
    int yDots = 0;         // top of its cell
    double widthDots = 0;  // of its cell
    int heightFactor = 1;  // cell height in units of lineDots
    bool doubleWidth = false;
    bool bold = false;
    Underline underline = Underline::none;
};

class GlyphPainter;

/// Which bit of a column's byte is the uppermost of its eight dots.
enum class DotOrder { upperLowest, upperHighest };

/// What has been printed on one document: a picture of one pixel per dot. Bitmaps and text are kept apart, so that a
/// bitmap's dots can be compared exactly however the text is drawn. Text is drawn when somebody looks at it: most
/// documents are ejected and never looked at.
class Page {
 public:
    Page(int paperWidthDots, int paperHeightDots, std::shared_ptr<GlyphPainter> painter);
    ~Page();
    Page(Page&&) noexcept;
    Page& operator=(Page&&) noexcept;

    /// Size of the picture: that of the paper, grown by whole inches where ink fell beyond it.
    [[nodiscard]] int width() const { return width_; }
    [[nodiscard]] int height() const { return height_; }

    /// True if a bitmap put a dot at column x, row y; false outside of the picture.
    [[nodiscard]] bool dot(int x, int y) const;

    /// How dark text has made that place: 0 (nothing) to 255; 0 outside of the picture.
    [[nodiscard]] int textInk(int x, int y) const;

    [[nodiscard]] bool blank() const { return !inked_; }

    /// Which of the documents it is on which something was printed, from 1; 0 as long as nothing was.
    [[nodiscard]] int number() const { return number_; }
    void setNumber(int number) { number_ = number; }

    /// Puts down packed columns, three bytes each from the top down, with their upper left corner at x, y. Returns the
    /// number of dots that lie beyond the farthest place and are not drawn.
    [[nodiscard]] std::size_t drawColumns(int x, int y, std::span<const std::uint8_t> columns, DotOrder order);

    /// Puts down one character. False, and no ink, if its cell reaches beyond the farthest place.
    [[nodiscard]] bool drawGlyph(Glyph glyph);

    [[nodiscard]] int paperWidth() const { return paperWidth_; }
    [[nodiscard]] int paperHeight() const { return paperHeight_; }

    /// The picture, four bytes a pixel: blue, green, red and one without meaning; empty if there is no memory for it.
    [[nodiscard]] std::vector<std::uint8_t> render() const;

    /// The picture as a PNG file of 180 dots per inch; empty if there is no memory for it.
    [[nodiscard]] std::vector<std::uint8_t> png() const;

 private:
    class TextLayer;

    void growTo(int width, int height);
    void drawText() const;

    int paperWidth_;
    int paperHeight_;
    int width_;
    int height_;
    bool inked_ = false;
    int number_ = 0;
    std::vector<std::uint8_t> dots_;  // one byte each, row by row; made with the first dot
    std::shared_ptr<GlyphPainter> painter_;
    mutable std::vector<Glyph> undrawn_;
    mutable std::unique_ptr<TextLayer> text_;  // made with the first character drawn
};

}  // namespace passbook::sim
