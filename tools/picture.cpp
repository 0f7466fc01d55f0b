#include "tools/picture.h"

#include <glib/gstdio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <fstream>
#include <memory>

#include "tools/pixels.h"
#include "tools/printer.h"

namespace passbook::tool {

namespace {

constexpr long long mostPixelsInAll = 100'000'000;  // 400 MB while it is read: a scan of A3 at 600 dots per inch
constexpr long mostBytes = 400'000'000;             // of a file
constexpr int white = 255;

std::string sizeText(long long width, long long height) {
    return std::to_string(width) + " x " + std::to_string(height);
}

/// Why a picture of that size is not taken; empty if it is.
std::string sizeProblem(const char* has, double width, double height, const char* unit) {
    if (width <= mostPixels && height <= mostPixels && width * height <= static_cast<double>(mostPixelsInAll))
        return {};
    return std::string(has) + " " + sizeText(std::llround(width), std::llround(height)) + " " + unit +
           "; the most is 32767 each way, and 100 million in all";
}

Pixbuf read(const std::string& path, std::string& problem) {
    // A pipe would wait for who knows whom.
    GStatBuf there{};
    if (g_stat(path.c_str(), &there) != 0) {
        problem = path + ": " + std::strerror(errno);
        return {};
    }
    if (!S_ISREG(there.st_mode)) {
        problem = path + ": not a regular file";
        return {};
    }
    // The size is looked at before anything is decoded: a small file can say that it has many pixels.
    int width = 0, height = 0;
    GdkPixbufFormat* const format = gdk_pixbuf_get_file_info(path.c_str(), &width, &height);
    if (format == nullptr) {
        problem = path + (g_access(path.c_str(), R_OK) == 0 ? ": not a picture of a known kind"
                                                            : std::string(": ") + std::strerror(errno));
        return {};
    }
    if (problem = sizeProblem("it has", width, height, "pixels"); !problem.empty()) {
        problem = path + ": " + problem;
        return {};
    }
    if (there.st_size > mostBytes) {
        problem = path + ": the file is larger than 400 MB";
        return {};
    }
    gchar* bytes = nullptr;
    gsize length = 0;
    GError* reason = nullptr;
    Pixbuf picture;
    if (g_file_get_contents(path.c_str(), &bytes, &length, &reason) != FALSE) {
        const std::unique_ptr<char, decltype(&g_free)> kind(gdk_pixbuf_format_get_name(format), g_free);
        picture = decodeWhole({reinterpret_cast<const std::uint8_t*>(bytes), length}, kind.get(), &reason);
    }
    g_free(bytes);
    if (!picture)
        problem = path + ": " + (reason != nullptr ? reason->message : "the picture is not whole");
    g_clear_error(&reason);
    return picture;
}

GdkPixbufRotation rotationOf(int degrees) {
    return degrees == 90    ? GDK_PIXBUF_ROTATE_CLOCKWISE
           : degrees == 180 ? GDK_PIXBUF_ROTATE_UPSIDEDOWN
           : degrees == 270 ? GDK_PIXBUF_ROTATE_COUNTERCLOCKWISE
                            : GDK_PIXBUF_ROTATE_NONE;
}

/// By how much a picture of that size is to grow.
double scaleOf(const PictureWish& wish, int width, int height) {
    double scale = wish.widthMm > 0 ? wish.widthMm * 180 / 25.4 / width : 1;
    if (wish.fitWidthMm > 0)
        scale = std::min(scale, wish.fitWidthMm * 180 / 25.4 / width);
    if (wish.fitHeightMm > 0)
        scale = std::min(scale, wish.fitHeightMm * 180 / 25.4 / height);
    return scale;
}

/// A row as grey values on white paper. Red, green and blue count the same, as they do in the driver.
void greyRow(const GdkPixbuf* picture, int y, std::vector<int>& grey) {
    const auto channels = static_cast<std::size_t>(gdk_pixbuf_get_n_channels(picture));
    const std::uint8_t* from =
        gdk_pixbuf_read_pixels(picture) + static_cast<std::ptrdiff_t>(y) * gdk_pixbuf_get_rowstride(picture);
    for (int& value : grey) {
        const int alpha = channels == 4 ? from[3] : white;
        value = ((from[0] + from[1] + from[2]) * alpha + 3 * white * (white - alpha)) / (3 * white);
        from += channels;
    }
}

/// Floyd-Steinberg: what a dot is too dark or too light, its neighbours make good. `error` is what the row before
/// leaves to this one, in sixteenths, and then what this one leaves to the next.
void ditherRow(const std::vector<int>& grey, std::vector<int>& error, std::uint8_t* ink) {
    std::vector<int> next(error.size());
    for (std::size_t x = 0, edge = 1; x < grey.size(); ++x, ++edge) {  // a column more at both ends
        const int value = grey[x] + error[edge] / 16;
        ink[x] = value < 128 ? 1 : 0;
        const int off = value - (ink[x] != 0 ? 0 : white);
        error[edge + 1] += off * 7;
        next[edge - 1] += off * 3;
        next[edge] += off * 5;
        next[edge + 1] += off;
    }
    error = std::move(next);
}

void put(std::string& to, std::uint32_t value, int bytes) {
    for (int i = 0; i < bytes; ++i)
        to.push_back(static_cast<char>(value >> 8 * i & 0xFF));
}

}  // namespace

bool Picture::blank() const {
    return std::find(ink.begin(), ink.end(), 1) == ink.end();
}

std::optional<Picture> Picture::load(const std::string& path, const PictureWish& wish, std::string& problem) {
    const auto failed = [&](const std::string& why) {
        problem = path + ": " + why;
        return std::nullopt;
    };
    Pixbuf pixels = read(path, problem);
    if (!pixels)
        return {};
    // EXIF's turn is kept until here, so that --turn is what a person sees.
    pixels.reset(gdk_pixbuf_apply_embedded_orientation(pixels.get()));
    if (pixels && wish.turnDegrees != 0)
        pixels.reset(gdk_pixbuf_rotate_simple(pixels.get(), rotationOf(wish.turnDegrees)));
    if (!pixels)
        return failed("no memory for it");
    const int width = gdk_pixbuf_get_width(pixels.get()), height = gdk_pixbuf_get_height(pixels.get());
    const double scale = scaleOf(wish, width, height);
    const double wantedWidth = std::max(1.0, std::round(width * scale));
    const double wantedHeight = std::max(1.0, std::round(height * scale));
    if (const std::string why = sizeProblem("it would have", wantedWidth, wantedHeight, "dots"); !why.empty())
        return failed(why);

    Picture picture;
    picture.width = static_cast<int>(wantedWidth);
    picture.height = static_cast<int>(wantedHeight);
    if (picture.width != width || picture.height != height)
        pixels.reset(gdk_pixbuf_scale_simple(pixels.get(), picture.width, picture.height, GDK_INTERP_BILINEAR));
    if (!pixels)
        return failed("no memory for it");
    picture.ink.resize(static_cast<std::size_t>(picture.width) * static_cast<std::size_t>(picture.height));
    std::vector<int> grey(static_cast<std::size_t>(picture.width));
    std::vector<int> error(grey.size() + 2);
    for (int y = 0; y < picture.height; ++y) {
        std::uint8_t* const row = picture.ink.data() + static_cast<std::size_t>(y) * grey.size();
        greyRow(pixels.get(), y, grey);
        if (wish.dither)
            ditherRow(grey, error, row);
        else
            std::transform(grey.begin(), grey.end(), row,
                           [&](int value) { return value < wish.threshold ? std::uint8_t{1} : std::uint8_t{0}; });
    }
    return picture;
}

std::string Picture::problemAt(Family family, int xDots, int yDots) const {
    constexpr int oliWidth = 1500, oliHeight = 7500;
    const auto reaches = [](const char* way, int dots, int most) {
        std::array<char, 120> text{};
        g_snprintf(text.data(), text.size(), "the picture would reach %.1f mm %s; the printer reaches %.1f mm",
                   millimetresFrom(dots), way, millimetresFrom(most));
        return std::string(text.data());
    };
    if (xDots < 0 || yDots < 0)
        return "the picture would begin outside the page";
    if (family == Family::oki)  // its commands count up to there; how wide its printers are, they do not tell
        return xDots + width > mostPixels ? reaches("to the right", xDots + width, mostPixels) : "";
    if (xDots + width > oliWidth)
        return reaches("to the right", xDots + width, oliWidth);
    return yDots + height > oliHeight ? reaches("down", yDots + height, oliHeight) : "";
}

std::string Picture::save(const std::string& path, int left, int top) const {
    constexpr std::uint32_t headerBytes = 14 + 40 + 2 * 4;
    constexpr int columnsPerByte = 8;
    const auto columns =
        static_cast<std::uint32_t>((left + width + columnsPerByte - 1) / columnsPerByte * columnsPerByte);
    const auto rows = static_cast<std::uint32_t>(top + height);
    const std::uint32_t stride = (columns / columnsPerByte + 3) / 4 * 4;
    const long long bytes = static_cast<long long>(stride) * rows;
    if (left < 0 || top < 0 || columns > 2 * mostPixels || bytes > mostPixelsInAll)
        return "the picture is too large for this place";

    std::string file = "BM";
    file.reserve(headerBytes + static_cast<std::size_t>(bytes));
    put(file, headerBytes + static_cast<std::uint32_t>(bytes), 4);
    put(file, 0, 4);
    put(file, headerBytes, 4);
    put(file, 40, 4);
    put(file, columns, 4);
    put(file, 0U - rows, 4);  // the top row first
    put(file, 1, 2);          // planes
    put(file, 1, 2);          // bits a pixel
    put(file, 0, 4);
    put(file, static_cast<std::uint32_t>(bytes), 4);
    put(file, 7087, 4);  // dots per metre: 180 per inch
    put(file, 7087, 4);
    put(file, 2, 4);
    put(file, 2, 4);
    put(file, 0xFFFFFF, 4);  // 0 is white, so that what is added around the picture is blank
    put(file, 0x000000, 4);  // 1 is ink
    file.resize(headerBytes + static_cast<std::size_t>(bytes));
    for (int y = 0; y < height; ++y) {
        char* const row =
            file.data() + headerBytes + static_cast<std::size_t>(stride) * static_cast<std::size_t>(top + y);
        for (int x = 0; x < width; ++x)
            if (at(x, y))
                row[(left + x) / columnsPerByte] =
                    static_cast<char>(row[(left + x) / columnsPerByte] | 0x80 >> (left + x) % columnsPerByte);
    }
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(file.data(), static_cast<std::streamsize>(file.size()));
    out.close();
    return out.good() ? ""
                      : "the picture cannot be written into a temporary file: " + std::string(std::strerror(errno));
}

std::optional<std::pair<double, double>> sizeFrom(const std::string& text) {
    std::array<double, 2> values{};
    const char* at = text.data();
    const char* const end = at + text.size();
    for (std::size_t i = 0; i < values.size(); ++i) {
        const auto [after, error] = std::from_chars(at, end, values[i]);
        const bool last = i + 1 == values.size();
        if (error != std::errc{} || !(values[i] > 0 && values[i] <= 10'000) ||
            (last ? after != end : after == end || *after != 'x'))
            return {};
        at = after + 1;
    }
    return std::pair(values[0], values[1]);
}

}  // namespace passbook::tool
