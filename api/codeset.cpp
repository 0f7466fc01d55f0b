#include "api/codeset.h"

#include <glib.h>

#include <cstring>
#include <new>

namespace passbook {

char utf8Code[256] = "utf8";
char gb2312Code[256] = "gb18030";

namespace {

/// GLib ends the process when it finds no memory. So we look whether there is as much as it takes: it begins with the
/// length of the text, makes that twice as much until the result fits, which is at most twice as long, and copies.
bool isMemoryFor(std::size_t textBytes) {
    constexpr std::size_t besides = 65536;  // the converter's tables and the C library's own
    return std::unique_ptr<char[]>(new (std::nothrow) char[6 * textBytes + besides]) != nullptr;
}

}  // namespace

char* convertCodeset(const char* text, int length, const char* target, const char* source, int* convertedLength) {
    const std::size_t size = length < 0 ? strnlen(text, longestTextBytes + 1) : static_cast<std::size_t>(length);
    if (size > longestTextBytes || !isMemoryFor(size))
        return nullptr;
    gsize bytesRead = 0;  // asking for it is what makes g_convert forgive a sequence cut off at the end
    gsize bytesWritten = 0;
    char* converted = g_convert(text, static_cast<gssize>(size), target, source, &bytesRead, &bytesWritten, nullptr);
    if (converted != nullptr)
        *convertedLength = static_cast<int>(bytesWritten);
    return converted;
}

ConvertedText toPrinter(const char* text, int length, int* convertedLength) {
    return ConvertedText(convertCodeset(text, length, gb2312Code, utf8Code, convertedLength));
}

void convertFree(char* text) {
    g_free(text);
}

}  // namespace passbook
