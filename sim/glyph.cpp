#include "sim/glyph.h"

#include <algorithm>

namespace passbook::sim {

namespace {

/// The mono face keeps its characters in line within the cells better than the proportional one.
constexpr const char* fontFamily = "WenQuanYi Micro Hei Mono";

/// So large, and with its baseline there, the face fills a cell of lineDots from the tops of its Chinese characters to
/// the ends of its descenders.
constexpr double fontDots = 22.5;
constexpr double baselineDots = 18.5;

/// How much wider than drawn a character may become to fill its cell. Beyond that a wide cell gets air on both sides
/// instead of a stretched letter.
constexpr double widestStretch = 1.2;

void underline(cairo_t* cairo, const Glyph& glyph, double height) {
    const auto line = [&](double below, double thickness) {
        cairo_rectangle(cairo, glyph.xDots, glyph.yDots + height + below, glyph.widthDots, thickness);
    };
    switch (glyph.underline) {
        case Underline::none:
            return;
        case Underline::single:
            line(1, 1);
            break;
        case Underline::doubled:
            line(0, 1);
            line(2, 1);
            break;
        case Underline::heavy:
            line(1, 3);
            break;
    }
    // Neighbours share fractions of a column; without smoothing they join without a seam.
    cairo_set_antialias(cairo, CAIRO_ANTIALIAS_NONE);
    cairo_fill(cairo);
}

}  // namespace

void GlyphPainter::findFonts() {
    fonts_.reset(pango_cairo_font_map_new());
    context_.reset(pango_font_map_create_context(fonts_.get()));
    layout_.reset(pango_layout_new(context_.get()));
    cairo_font_options_t* options = cairo_font_options_create();
    cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
    cairo_font_options_set_hint_style(options, CAIRO_HINT_STYLE_NONE);
    cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
    pango_cairo_context_set_font_options(context_.get(), options);
    cairo_font_options_destroy(options);

    PangoFontDescription* font = pango_font_description_new();
    pango_font_description_set_family_static(font, fontFamily);
    pango_font_description_set_absolute_size(font, fontDots * PANGO_SCALE);
    pango_layout_set_font_description(layout_.get(), font);
    pango_font_description_free(font);
}

void GlyphPainter::draw(cairo_t* cairo, std::span<const Glyph> glyphs) {
    const std::lock_guard lock(mutex_);
    if (!layout_)
        findFonts();  // only now: it takes a while
    for (const Glyph& glyph : glyphs)
        drawOne(cairo, glyph);
}

void GlyphPainter::drawOne(cairo_t* cairo, const Glyph& glyph) {
    const double height = glyph.heightFactor * lineDots;
    cairo_save(cairo);
    underline(cairo, glyph, height);
    cairo_restore(cairo);

    pango_layout_set_text(layout_.get(), glyph.utf8.c_str(), -1);
    PangoRectangle extents;
    pango_layout_get_extents(layout_.get(), nullptr, &extents);
    const double advance = pango_units_to_double(extents.width);
    if (advance <= 0)
        return;
    const double widest = widestStretch * (glyph.doubleWidth ? 2 : 1);
    const double scale = std::min(glyph.widthDots / advance, widest);
    const double left = glyph.xDots + (glyph.widthDots - advance * scale) / 2;
    const double baseline = pango_units_to_double(pango_layout_get_baseline(layout_.get()));

    cairo_save(cairo);
    // A font that stands in for a missing character may be larger than its cell.
    cairo_rectangle(cairo, glyph.xDots - 1, glyph.yDots, glyph.widthDots + 2, height);
    cairo_clip(cairo);
    // Bold is what the head makes of it: each dot struck twice, a column apart.
    for (int strike = 0; strike <= (glyph.bold ? 1 : 0); ++strike) {
        cairo_save(cairo);
        cairo_translate(cairo, left + strike, glyph.yDots);
        cairo_scale(cairo, scale, glyph.heightFactor);
        cairo_move_to(cairo, 0, baselineDots - baseline);
        pango_cairo_show_layout(cairo, layout_.get());
        cairo_restore(cairo);
    }
    cairo_restore(cairo);
}

}  // namespace passbook::sim
