// Pictures as gdk-pixbuf decodes them.
#pragma once

#include <gdk-pixbuf/gdk-pixbuf.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>

namespace passbook::tool {

struct Unref {
    void operator()(void* object) const { g_object_unref(object); }
};
using Pixbuf = std::unique_ptr<GdkPixbuf, Unref>;

inline constexpr int mostPixels = 32767;  // each way

/// The picture, if all of it is there: a part of one must not be printed as if it were all, or told to be a scan.
/// `kind` is gdk-pixbuf's name of the format. Null with a reason, or without one: then rows are missing.
[[nodiscard]] Pixbuf decodeWhole(std::span<const std::uint8_t> bytes, const std::string& kind, GError** reason);

}  // namespace passbook::tool
