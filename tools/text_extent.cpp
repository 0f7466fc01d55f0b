#include "tools/text_extent.h"

#include <glib.h>

#include <cmath>

namespace passbook::tool {

namespace {

constexpr int dotsPerInch = 180;
constexpr int cellRows = 24;

}  // namespace

Box boxOf(std::string_view utf8, const TextFormat& format, int xDots, int yDots) {
    const double cell = static_cast<double>(dotsPerInch) / format.pitch;
    double width = 0;
    const char* const end = utf8.data() + utf8.size();
    for (const char* at = utf8.data(); at < end; at = g_utf8_next_char(at)) {
        // The printer's code for it has two bytes, or one.
        const bool chinese = static_cast<unsigned char>(*at) >= 0x80;
        const bool isDouble = chinese ? format.width == 1 : format.width != 0;
        width += cell * (chinese ? 2 : 1) * (isDouble ? 2 : 1);
    }
    return {xDots, yDots, xDots + static_cast<int>(std::ceil(width)), yDots + cellRows * (format.height + 1)};
}

std::optional<std::vector<std::string>> missingCharacters(std::string_view utf8) {
    if (g_utf8_validate(utf8.data(), static_cast<gssize>(utf8.size()), nullptr) == FALSE)
        return {};
    std::vector<std::string> missing;
    const char* const end = utf8.data() + utf8.size();
    for (const char* at = utf8.data(); at < end;) {
        const char* const next = g_utf8_next_char(at);
        gsize bytes = 0;
        gchar* const code = g_convert(at, next - at, "GB18030", "UTF-8", nullptr, &bytes, nullptr);
        g_free(code);
        if (code == nullptr || bytes > 2 || g_unichar_iscntrl(g_utf8_get_char(at)) != FALSE)
            missing.emplace_back(at, next);
        at = next;
    }
    return missing;
}

}  // namespace passbook::tool
