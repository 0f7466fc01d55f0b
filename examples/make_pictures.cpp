// Draws the pictures that the demo prints, so that none has to be taken from elsewhere.
//   make_pictures DIRECTORY      writes stamp.bmp, a bank's round stamp as 8-bit grey
#include <cairo.h>
#include <pango/pangocairo.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <string>
#include <vector>

namespace {

/// A white canvas to draw on in black.
class Canvas {
 public:
    Canvas(int width, int height)
        : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)),
          cairo_(cairo_create(surface_)) {
        cairo_set_source_rgb(cairo_, 1, 1, 1);
        cairo_paint(cairo_);
        cairo_set_source_rgb(cairo_, 0, 0, 0);
    }
    ~Canvas() {
        cairo_destroy(cairo_);
        cairo_surface_destroy(surface_);
    }
    Canvas(const Canvas&) = delete;
    Canvas& operator=(const Canvas&) = delete;

    [[nodiscard]] cairo_t* cairo() const { return cairo_; }

    /// Text with its middle at x, y, turned by `angle`.
    void text(const std::string& text, double x, double y, double size, double angle) const {
        PangoLayout* layout = pango_cairo_create_layout(cairo_);
        PangoFontDescription* font = pango_font_description_from_string("WenQuanYi Micro Hei Bold");
        pango_font_description_set_absolute_size(font, size * PANGO_SCALE);
        pango_layout_set_font_description(layout, font);
        pango_layout_set_text(layout, text.c_str(), -1);
        int width = 0, height = 0;
        pango_layout_get_pixel_size(layout, &width, &height);
        cairo_save(cairo_);
        cairo_translate(cairo_, x, y);
        cairo_rotate(cairo_, angle);
        cairo_move_to(cairo_, -width / 2.0, -height / 2.0);
        pango_cairo_show_layout(cairo_, layout);
        cairo_restore(cairo_);
        pango_font_description_free(font);
        g_object_unref(layout);
    }

    /// Writes the canvas as a bottom-up BMP of 8-bit grey with its colour table. False when that fails.
    [[nodiscard]] bool writeGreyBmp(const std::string& path) const {
        cairo_surface_flush(surface_);
        const int width = cairo_image_surface_get_width(surface_);
        const int height = cairo_image_surface_get_height(surface_);
        const int stride = (width + 3) / 4 * 4;
        constexpr int offset = 54 + 4 * 256;
        std::vector<unsigned char> file(static_cast<std::size_t>(offset + stride * height));
        const auto put = [&](std::size_t at, std::uint32_t value) {
            for (std::size_t i = 0; i < 4; ++i)
                file[at + i] = static_cast<unsigned char>(value >> (8 * i));
        };
        put(0, 0x4D42);
        put(2, static_cast<std::uint32_t>(file.size()));
        put(10, offset);
        put(14, 40);
        put(18, static_cast<std::uint32_t>(width));
        put(22, static_cast<std::uint32_t>(height));
        put(26, 1 | 8 << 16);
        put(34, static_cast<std::uint32_t>(stride * height));
        for (std::uint32_t i = 0; i < 256; ++i)
            put(54 + 4 * i, i * 0x010101);
        for (int y = 0; y < height; ++y) {
            const unsigned char* pixels =
                cairo_image_surface_get_data(surface_) + y * cairo_image_surface_get_stride(surface_);
            for (int x = 0; x < width; ++x)
                file[static_cast<std::size_t>(offset + (height - 1 - y) * stride + x)] = pixels[4 * x];
        }
        std::FILE* out = std::fopen(path.c_str(), "wb");
        if (out == nullptr)
            return false;
        const bool written = std::fwrite(file.data(), 1, file.size(), out) == file.size();
        return std::fclose(out) == 0 && written;
    }

 private:
    cairo_surface_t* surface_;
    cairo_t* cairo_;
};

bool drawStamp(const std::string& path) {
    constexpr double size = 252, middle = size / 2;
    const Canvas canvas(static_cast<int>(size), static_cast<int>(size));
    for (const auto& [radius, width] : {std::pair{122.0, 5.0}, {112.0, 2.0}, {68.0, 2.0}}) {
        cairo_set_line_width(canvas.cairo(), width);
        cairo_arc(canvas.cairo(), middle, middle, radius, 0, 2 * std::numbers::pi);
        cairo_stroke(canvas.cairo());
    }
    const char* around[] = {"示", "范", "银", "行", "业", "务", "专", "用", "章"};
    for (int i = 0; i < 9; ++i) {
        const double angle = (i - 4) * 0.52;
        canvas.text(around[i], middle + 90 * std::sin(angle), middle - 90 * std::cos(angle), 34, angle);
    }
    canvas.text("2026.11.22", middle, middle, 22, 0);
    canvas.text("PAID", middle, middle - 34, 24, 0);
    canvas.text("收讫", middle, middle + 34, 26, 0);
    return canvas.writeGreyBmp(path);
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_pictures DIRECTORY\n");
        return 2;
    }
    const std::string directory = argv[1];
    if (!drawStamp(directory + "/stamp.bmp")) {
        std::fprintf(stderr, "make_pictures: cannot write to %s\n", argv[1]);
        return 1;
    }
    return 0;
}
