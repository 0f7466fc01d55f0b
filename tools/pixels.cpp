#include "tools/pixels.h"

#include <algorithm>
#include <array>
#include <vector>

namespace passbook::tool {

namespace {

/// Whether a JPEG has its end. Without it gdk-pixbuf takes what there is for the picture, and the rest is grey.
bool hasEnd(std::span<const std::uint8_t> jpeg) {
    constexpr std::uint8_t mark = 0xFF, scan = 0xDA, end = 0xD9;
    // The segments in front of the image can have whole pictures in them.
    std::size_t at = 2;
    while (at + 4 <= jpeg.size() && jpeg[at] == mark && jpeg[at + 1] != scan)
        at += jpeg[at + 1] == mark ? 1 : std::size_t{2} + jpeg[at + 2] * std::size_t{256} + jpeg[at + 3];
    constexpr std::array<std::uint8_t, 2> ending{mark, end};
    const auto from = jpeg.begin() + static_cast<std::ptrdiff_t>(std::min(at, jpeg.size()));
    return std::search(from, jpeg.end(), ending.begin(), ending.end()) != jpeg.end();
}

}  // namespace

Pixbuf decodeWhole(std::span<const std::uint8_t> bytes, const std::string& kind, GError** reason) {
    const std::unique_ptr<GdkPixbufLoader, Unref> loader(gdk_pixbuf_loader_new());
    std::vector<bool> rows;
    const auto note = +[](GdkPixbufLoader* /*loader*/, int /*x*/, int y, int /*width*/, int height, void* user) {
        auto& seen = *static_cast<std::vector<bool>*>(user);
        if (y < 0 || height < 0 || y + height > mostPixels)
            return;
        seen.resize(std::max(seen.size(), static_cast<std::size_t>(y + height)));
        std::fill_n(seen.begin() + y, height, true);
    };
    (void)g_signal_connect(loader.get(), "area-updated", G_CALLBACK(note), &rows);
    const bool taken = gdk_pixbuf_loader_write(loader.get(), bytes.data(), bytes.size(), reason) != FALSE;
    const bool closed = gdk_pixbuf_loader_close(loader.get(), taken ? reason : nullptr) != FALSE;
    GdkPixbuf* const picture = gdk_pixbuf_loader_get_pixbuf(loader.get());  // the loader's
    if (!taken || !closed || picture == nullptr)
        return {};
    // Of these kinds the decoder says nothing when rows are missing, except that it does not tell of them.
    const bool tellsRows = kind == "bmp" || kind == "png" || kind == "pnm";
    const auto seen = std::count(rows.begin(), rows.end(), true);
    if ((tellsRows && seen < gdk_pixbuf_get_height(picture)) || (kind == "jpeg" && !hasEnd(bytes)))
        return {};
    return Pixbuf(GDK_PIXBUF(g_object_ref(picture)));
}

}  // namespace passbook::tool
