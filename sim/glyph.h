#pragma once

#include <cairo.h>
#include <pango/pangocairo.h>

#include <memory>

#include "sim/page.h"

namespace passbook::sim {

struct ReleaseObject {
    void operator()(void* object) const { g_object_unref(object); }
};

// Draws characters with the system's fonts into the printer's cells.
class GlyphPainter {
 public:
    GlyphPainter();

    // Rows below the cell that the underline takes.
    static constexpr int kUnderlineRows = 4;

    void draw(cairo_t* cairo, const Glyph& glyph);

 private:
    // A font map of our own: the default one belongs to a thread and lives as long as it does.
    std::unique_ptr<PangoFontMap, ReleaseObject> fonts_;
    std::unique_ptr<PangoContext, ReleaseObject> context_;
    std::unique_ptr<PangoLayout, ReleaseObject> layout_;
};

}  // namespace passbook::sim
