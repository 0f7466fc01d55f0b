#include "sim/page.h"

#include <cairo.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

#include "sim/glyph.h"

namespace passbook::sim {

namespace {

constexpr double mmPerInch = 25.4;
constexpr std::size_t columnBytes = 3;

struct DestroySurface {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
struct DestroyCairo {
    void operator()(cairo_t* cairo) const { cairo_destroy(cairo); }
};
using Surface = std::unique_ptr<cairo_surface_t, DestroySurface>;
using Cairo = std::unique_ptr<cairo_t, DestroyCairo>;

/// The chunk that tells a viewer the picture's size on paper: 7087 pixels per metre both ways (180 dpi), with its check
/// sum. Cairo writes none.
constexpr std::array<std::uint8_t, 21> resolutionChunk{0x00, 0x00, 0x00, 0x09, 'p',  'H',  'Y',  's',  0x00, 0x00, 0x1B,
                                                       0xAF, 0x00, 0x00, 0x1B, 0xAF, 0x01, 0x5E, 0x1A, 0x91, 0x1C};
constexpr std::size_t behindHeaderChunk = 8 + 25;

cairo_status_t append(void* file, const unsigned char* bytes, unsigned int length) {
    auto* to = static_cast<std::vector<std::uint8_t>*>(file);
    to->insert(to->end(), bytes, bytes + length);
    return CAIRO_STATUS_SUCCESS;
}

constexpr std::size_t pixelBytes = 4;

/// More characters than a full page has; of a host that never ejects, no more wait to be drawn.
constexpr std::size_t maxUndrawn = 16384;

int strideOf(int width) {
    return cairo_format_stride_for_width(CAIRO_FORMAT_RGB24, width);
}

/// Draws into `pixels`, which must outlive it.
Surface surfaceOf(std::vector<std::uint8_t>& pixels, int width, int height) {
    return Surface(
        cairo_image_surface_create_for_data(pixels.data(), CAIRO_FORMAT_RGB24, width, height, strideOf(width)));
}

/// The size to which a picture grows for ink that ends at `needed`: by inches, so that a page full of overhanging lines
/// isn't copied once a line.
int grown(int size, int needed, int limit) {
    if (needed <= size)
        return size;
    const int inches = (needed - size + dotsPerInch - 1) / dotsPerInch;
    return std::min(size + inches * dotsPerInch, limit);
}

}  // namespace

int mmToDots(double mm) {
    return static_cast<int>(std::lround(mm * dotsPerInch / mmPerInch));
}

double dotsToMm(double dots) {
    return dots * mmPerInch / dotsPerInch;
}

/// A mask of what text has darkened.
class Page::TextLayer {
 public:
    TextLayer(int width, int height) : surface_(cairo_image_surface_create(CAIRO_FORMAT_A8, width, height)) {}

    [[nodiscard]] cairo_surface_t* surface() const { return surface_.get(); }

    void draw(std::span<const Glyph> glyphs, GlyphPainter& painter) {
        const Cairo cairo(cairo_create(surface_.get()));
        painter.draw(cairo.get(), glyphs);
    }

    void growTo(int width, int height) {
        Surface larger(cairo_image_surface_create(CAIRO_FORMAT_A8, width, height));
        const Cairo cairo(cairo_create(larger.get()));
        cairo_set_source_surface(cairo.get(), surface_.get(), 0, 0);
        cairo_paint(cairo.get());
        surface_ = std::move(larger);
    }

    [[nodiscard]] int at(int x, int y) const {
        cairo_surface_flush(surface_.get());
        const unsigned char* data = cairo_image_surface_get_data(surface_.get());
        return data == nullptr ? 0 : data[y * cairo_image_surface_get_stride(surface_.get()) + x];
    }

 private:
    Surface surface_;
};

Page::Page(int paperWidthDots, int paperHeightDots, std::shared_ptr<GlyphPainter> painter)
    : paperWidth_(std::clamp(paperWidthDots, 1, maxPageWidthDots)),
      paperHeight_(std::clamp(paperHeightDots, 1, maxPageHeightDots)),
      width_(paperWidth_),
      height_(paperHeight_),
      painter_(std::move(painter)) {}

Page::~Page() = default;
Page::Page(Page&&) noexcept = default;
Page& Page::operator=(Page&&) noexcept = default;

bool Page::dot(int x, int y) const {
    if (x < 0 || y < 0 || x >= width_ || y >= height_ || dots_.empty())
        return false;
    return dots_[static_cast<std::size_t>(y) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(x)] != 0;
}

int Page::textInk(int x, int y) const {
    drawText();
    if (!text_ || x < 0 || y < 0 || x >= width_ || y >= height_)
        return 0;
    return text_->at(x, y);
}

std::size_t Page::drawColumns(int x, int y, std::span<const std::uint8_t> columns, DotOrder order) {
    std::size_t lost = 0;
    for (std::size_t i = 0; i < columns.size(); ++i) {
        const int column = x + static_cast<int>(i / columnBytes);
        const int top = y + static_cast<int>(i % columnBytes) * 8;
        for (int bit = 0; bit < 8; ++bit) {
            if ((columns[i] >> bit & 1) == 0)
                continue;
            const int row = top + (order == DotOrder::upperLowest ? bit : 7 - bit);
            if (column < 0 || row < 0 || column >= maxPageWidthDots || row >= maxPageHeightDots) {
                ++lost;
                continue;
            }
            growTo(column + 1, row + 1);
            dots_.resize(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_));
            dots_[static_cast<std::size_t>(row) * static_cast<std::size_t>(width_) + static_cast<std::size_t>(column)] =
                1;
            inked_ = true;
        }
    }
    return lost;
}

bool Page::drawGlyph(Glyph glyph) {
    const int below = glyph.underline == Underline::none ? 0 : GlyphPainter::underlineRows;
    const int bottom = glyph.yDots + glyph.heightFactor * lineDots + below;
    const double right = std::ceil(glyph.xDots + glyph.widthDots);
    if (glyph.xDots < 0 || glyph.yDots < 0 || right > maxPageWidthDots || bottom > maxPageHeightDots)
        return false;
    const bool blank = glyph.utf8 == " " && glyph.underline == Underline::none;
    if (blank)
        return true;
    growTo(static_cast<int>(right), bottom);
    undrawn_.push_back(std::move(glyph));
    if (undrawn_.size() == maxUndrawn)
        drawText();
    inked_ = true;
    return true;
}

void Page::drawText() const {
    if (undrawn_.empty())
        return;
    if (!text_)
        text_ = std::make_unique<TextLayer>(width_, height_);
    text_->draw(std::exchange(undrawn_, {}), *painter_);
}

void Page::growTo(int width, int height) {
    const int newWidth = grown(width_, width, maxPageWidthDots);
    const int newHeight = grown(height_, height, maxPageHeightDots);
    if (newWidth == width_ && newHeight == height_)
        return;
    if (!dots_.empty()) {
        std::vector<std::uint8_t> larger(static_cast<std::size_t>(newWidth) * static_cast<std::size_t>(newHeight));
        for (std::ptrdiff_t row = 0; row < height_; ++row)
            std::copy_n(dots_.begin() + row * width_, width_, larger.begin() + row * newWidth);
        dots_ = std::move(larger);
    }
    if (text_)
        text_->growTo(newWidth, newHeight);
    width_ = newWidth;
    height_ = newHeight;
}

std::vector<std::uint8_t> Page::render() const {
    drawText();
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(strideOf(width_)) * static_cast<std::size_t>(height_));
    const Surface picture = surfaceOf(pixels, width_, height_);
    {
        const Cairo cairo(cairo_create(picture.get()));
        // What fell beside the paper stands on grey.
        cairo_set_source_rgb(cairo.get(), 0.85, 0.85, 0.85);
        cairo_paint(cairo.get());
        cairo_set_source_rgb(cairo.get(), 1, 1, 1);
        cairo_rectangle(cairo.get(), 0, 0, paperWidth_, paperHeight_);
        cairo_fill(cairo.get());
        if (text_) {
            cairo_set_source_rgb(cairo.get(), 0, 0, 0);
            cairo_mask_surface(cairo.get(), text_->surface(), 0, 0);
        }
        if (cairo_status(cairo.get()) != CAIRO_STATUS_SUCCESS)
            return {};
    }
    cairo_surface_flush(picture.get());
    for (std::size_t i = 0; i < dots_.size(); ++i)
        if (dots_[i] != 0)
            std::fill_n(pixels.begin() + static_cast<std::ptrdiff_t>(i * pixelBytes), pixelBytes, std::uint8_t{0});
    return pixels;
}

std::vector<std::uint8_t> Page::png() const {
    std::vector<std::uint8_t> pixels = render();
    if (pixels.empty())
        return {};
    const Surface picture = surfaceOf(pixels, width_, height_);
    std::vector<std::uint8_t> file;
    if (cairo_surface_write_to_png_stream(picture.get(), append, &file) != CAIRO_STATUS_SUCCESS ||
        file.size() < behindHeaderChunk)
        return {};
    file.insert(file.begin() + behindHeaderChunk, resolutionChunk.begin(), resolutionChunk.end());
    return file;
}

}  // namespace passbook::sim
