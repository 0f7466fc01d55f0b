#include "sim/program/document_file.h"

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <memory>

namespace passbook::sim {

namespace {

constexpr std::uint8_t white = 0xFF;

/// A channel laid over white paper.
std::uint8_t onWhite(unsigned value, unsigned alpha) {
    return static_cast<std::uint8_t>((value * alpha + white * (0xFFU - alpha) + 0x7FU) / 0xFFU);
}

}  // namespace

Document documentFromFile(const std::string& path, std::string& error) {
    GError* reason = nullptr;
    GdkPixbuf* const loaded = gdk_pixbuf_new_from_file(path.c_str(), &reason);
    if (loaded == nullptr) {
        error = path + ": " + (reason != nullptr ? reason->message : "can't be read");
        g_clear_error(&reason);
        return {};
    }
    const std::shared_ptr<GdkPixbuf> picture(loaded, g_object_unref);
    // Always eight bits a channel, red first.
    const auto channels = static_cast<std::size_t>(gdk_pixbuf_get_n_channels(picture.get()));
    const auto row = [picture, channels](int y, std::span<std::uint8_t> bgr) {
        const std::uint8_t* from = gdk_pixbuf_read_pixels(picture.get()) +
                                   static_cast<std::ptrdiff_t>(y) * gdk_pixbuf_get_rowstride(picture.get());
        for (std::size_t at = 0; at + 3 <= bgr.size(); at += 3, from += channels) {
            const unsigned alpha = channels == 4 ? from[3] : 0xFFU;
            for (std::size_t channel = 0; channel < 3; ++channel)
                bgr[at + channel] = onWhite(from[2 - channel], alpha);
        }
    };
    return {gdk_pixbuf_get_width(picture.get()), gdk_pixbuf_get_height(picture.get()), row};
}

}  // namespace passbook::sim
