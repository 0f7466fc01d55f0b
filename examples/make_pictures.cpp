// Draws the pictures that the demo prints, so that none has to be taken from elsewhere.
//   make_pictures DIRECTORY      writes stamp.bmp, a bank's round stamp as 8-bit grey; stamp.b64, the same as base64
//                                text; building.jpg; logo.png, with transparency
#include <cairo.h>
#include <glib.h>
#include <pango/pangocairo.h>
#include <png.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numbers>
#include <string>
#include <utility>
#include <vector>
// libjpeg's header wants stdio.h before it.
#include <jpeglib.h>

namespace {

/// A white canvas to draw on in black.
class Canvas {
 public:
    Canvas(int width, int height)
        : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height)), cairo_(cairo_create(surface_)) {
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

    [[nodiscard]] int width() const { return cairo_image_surface_get_width(surface_); }
    [[nodiscard]] int height() const { return cairo_image_surface_get_height(surface_); }

    /// The pixels of a row, four bytes each: blue, green, red and one without meaning.
    [[nodiscard]] const unsigned char* row(int y) const {
        cairo_surface_flush(surface_);
        return cairo_image_surface_get_data(surface_) + y * cairo_image_surface_get_stride(surface_);
    }

 private:
    cairo_surface_t* surface_;
    cairo_t* cairo_;
};

bool writeFile(const std::string& path, const void* data, std::size_t size) {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (out == nullptr)
        return false;
    const bool written = std::fwrite(data, 1, size, out) == size;
    return std::fclose(out) == 0 && written;
}

/// A bottom-up BMP of 8-bit grey with its colour table.
std::vector<unsigned char> greyBmp(const Canvas& canvas) {
    const int width = canvas.width();
    const int height = canvas.height();
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
    for (int y = 0; y < height; ++y)
        for (int x = 0; x < width; ++x)
            file[static_cast<std::size_t>(offset + (height - 1 - y) * stride + x)] = canvas.row(y)[4 * x];
    return file;
}

bool writeJpeg(const Canvas& canvas, const std::string& path) {
    std::FILE* out = std::fopen(path.c_str(), "wb");
    if (out == nullptr)
        return false;
    jpeg_compress_struct codec{};
    jpeg_error_mgr errors{};
    codec.err = jpeg_std_error(&errors);
    jpeg_create_compress(&codec);
    jpeg_stdio_dest(&codec, out);
    codec.image_width = static_cast<JDIMENSION>(canvas.width());
    codec.image_height = static_cast<JDIMENSION>(canvas.height());
    codec.input_components = 4;
    codec.in_color_space = JCS_EXT_BGRX;
    jpeg_set_defaults(&codec);
    jpeg_set_quality(&codec, 92, TRUE);
    jpeg_start_compress(&codec, TRUE);
    while (codec.next_scanline < codec.image_height) {
        JSAMPROW row = const_cast<JSAMPROW>(canvas.row(static_cast<int>(codec.next_scanline)));  // only read
        (void)jpeg_write_scanlines(&codec, &row, 1);
    }
    jpeg_finish_compress(&codec);
    jpeg_destroy_compress(&codec);
    return std::fclose(out) == 0;
}

/// White becomes transparent, but stays white underneath: printers see no transparency.
bool writePng(const Canvas& canvas, const std::string& path) {
    std::vector<unsigned char> pixels;
    for (int y = 0; y < canvas.height(); ++y) {
        for (int x = 0; x < canvas.width(); ++x) {
            const unsigned char* pixel = canvas.row(y) + 4 * x;
            const int darkest = std::min({pixel[0], pixel[1], pixel[2]});
            pixels.insert(pixels.end(), {pixel[2], pixel[1], pixel[0], static_cast<unsigned char>(255 - darkest)});
        }
    }
    png_image image{};
    image.version = PNG_IMAGE_VERSION;
    image.width = static_cast<png_uint_32>(canvas.width());
    image.height = static_cast<png_uint_32>(canvas.height());
    image.format = PNG_FORMAT_RGBA;
    return png_image_write_to_file(&image, path.c_str(), 0, pixels.data(), 0, nullptr) != 0;
}

bool drawStamp(const std::string& directory) {
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
    const std::vector<unsigned char> bmp = greyBmp(canvas);
    char* text = g_base64_encode(bmp.data(), bmp.size());
    const bool written = writeFile(directory + "/stamp.bmp", bmp.data(), bmp.size()) &&
                         writeFile(directory + "/stamp.b64", text, std::char_traits<char>::length(text));
    g_free(text);
    return written;
}

/// The bank's head office: dark lines and shades on light ones, for the print is black and white.
bool drawBuilding(const std::string& directory) {
    const Canvas canvas(520, 300);
    cairo_t* cairo = canvas.cairo();
    const auto box = [&](double x, double y, double width, double height, double grey) {
        cairo_rectangle(cairo, x, y, width, height);
        cairo_set_source_rgb(cairo, grey, grey * 0.97, grey * 0.9);
        cairo_fill_preserve(cairo);
        cairo_set_source_rgb(cairo, 0, 0, 0);
        cairo_stroke(cairo);
    };
    cairo_set_line_width(cairo, 3);
    for (int ray = 0; ray < 24; ++ray) {  // the sun
        const double angle = ray * std::numbers::pi / 12;
        cairo_move_to(cairo, 450 + 30 * std::cos(angle), 50 + 30 * std::sin(angle));
        cairo_line_to(cairo, 450 + 44 * std::cos(angle), 50 + 44 * std::sin(angle));
    }
    cairo_stroke(cairo);
    cairo_arc(cairo, 450, 50, 22, 0, 2 * std::numbers::pi);
    cairo_stroke(cairo);
    cairo_move_to(cairo, 60, 110);  // the gable
    cairo_line_to(cairo, 240, 30);
    cairo_line_to(cairo, 420, 110);
    cairo_close_path(cairo);
    cairo_set_source_rgb(cairo, 0.25, 0.2, 0.2);
    cairo_fill(cairo);
    box(60, 110, 360, 24, 0.95);
    for (int column = 0; column < 6; ++column)
        box(78 + column * 62, 134, 22, 110, 1.0);
    for (int window = 0; window < 5; ++window)
        box(106 + window * 62, 156, 28, window == 2 ? 88 : 56, 0.3);
    box(40, 244, 400, 16, 0.95);
    box(20, 260, 440, 16, 0.95);
    for (int stroke = 0; stroke < 130; ++stroke) {  // grass
        const double x = 4 * stroke;
        cairo_move_to(cairo, x, 298);
        cairo_line_to(cairo, x + 3, 280 + (stroke * 7) % 9);
    }
    cairo_set_line_width(cairo, 1.5);
    cairo_stroke(cairo);
    return writeJpeg(canvas, directory + "/building.jpg");
}

bool drawLogo(const std::string& directory) {
    const Canvas canvas(300, 96);
    cairo_t* cairo = canvas.cairo();
    cairo_set_source_rgb(cairo, 0.1, 0.1, 0.4);
    cairo_arc(cairo, 48, 48, 40, 0, 2 * std::numbers::pi);
    cairo_fill(cairo);
    cairo_set_source_rgb(cairo, 1, 1, 1);
    cairo_rectangle(cairo, 30, 30, 36, 36);
    cairo_fill(cairo);
    cairo_set_source_rgb(cairo, 0.1, 0.1, 0.4);
    canvas.text("示范银行", 190, 34, 44, 0);
    canvas.text("DEMO BANK", 190, 76, 28, 0);
    return writePng(canvas, directory + "/logo.png");
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: make_pictures DIRECTORY\n");
        return 2;
    }
    const std::string directory = argv[1];
    if (!drawStamp(directory) || !drawBuilding(directory) || !drawLogo(directory)) {
        std::fprintf(stderr, "make_pictures: cannot write to %s\n", argv[1]);
        return 1;
    }
    return 0;
}
