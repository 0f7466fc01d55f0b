#include "api/codeset.h"

#include <glib.h>

namespace passbook {

char utf8Code[256] = "utf8";
char gb2312Code[256] = "gb18030";

char* convertCodeset(const char* text, int length, const char* target, const char* source,
                     int* convertedLength) {
    gsize bytesRead = 0;  // asking for it is what makes g_convert forgive a sequence cut off at the end
    gsize bytesWritten = 0;
    char* converted = g_convert(text, length, target, source, &bytesRead, &bytesWritten, nullptr);
    if (converted != nullptr && bytesWritten > G_MAXINT) {
        g_free(converted);
        return nullptr;
    }
    if (converted != nullptr)
        *convertedLength = static_cast<int>(bytesWritten);
    return converted;
}

void convertFree(char* text) {
    g_free(text);
}

}  // namespace passbook
