#pragma once

#include <cairo.h>
#include <pango/pangocairo.h>

#include <memory>
#include <mutex>
#include <span>

#include "sim/page.h"

namespace passbook::sim {

struct ReleaseObject {
    void operator()(void* object) const { g_object_unref(object); }
};

/// Draws characters with the system's fonts into the printer's cells. The pages of a printer share it, and may be
/// looked at in different threads.
class GlyphPainter {
 public:
    /// Rows below the cell that the underline takes.
    static constexpr int underlineRows = 4;

    void draw(cairo_t* cairo, std::span<const Glyph> glyphs);

 private:
    void findFonts();
    void drawOne(cairo_t* cairo, const Glyph& glyph);

    std::mutex mutex_;
    /// A font map of our own: the default one belongs to a thread and lives as long as it does.
    std::unique_ptr<PangoFontMap, ReleaseObject> fonts_;
    std::unique_ptr<PangoContext, ReleaseObject> context_;
    std::unique_ptr<PangoLayout, ReleaseObject> layout_;
};

}  // namespace passbook::sim
