// The text that the host hands over, in the code set that the printers take.
#pragma once

#include <memory>

namespace passbook {

/// The code sets' names, as GLib's g_convert takes them: the host's and the printers'.
extern char utf8Code[256];
extern char gb2312Code[256];

/// The longest text that is converted, 16 MiB: hours on a line. Nothing that a host hands over decides how much memory
/// GLib is asked for.
inline constexpr int longestTextBytes = 16 * 1024 * 1024;

/// Converts `length` bytes of text (up to the terminating zero when `length` is negative) from code set
/// `source` to `target`. Returns a text with a zero behind it, to be released with convertFree, and its
/// length without that zero in `*convertedLength`; null when the text is not valid, longer than longestTextBytes, or
/// there is no room, with `*convertedLength` untouched. A sequence that is cut off at the very end of the text is left
/// out; any other invalid one fails.
[[nodiscard]] char* convertCodeset(const char* text, int length, const char* target, const char* source,
                                   int* convertedLength);

/// Releases what convertCodeset returned. Null is ignored.
void convertFree(char* text);

struct FreeConverted {
    void operator()(char* text) const { convertFree(text); }
};

/// Owns what convertCodeset returned.
using ConvertedText = std::unique_ptr<char, FreeConverted>;

/// The host's text for a printer: convertCodeset between the two code sets.
[[nodiscard]] ConvertedText toPrinter(const char* text, int length, int* convertedLength);

}  // namespace passbook
