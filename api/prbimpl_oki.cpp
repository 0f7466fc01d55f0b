// The exported functions of the OKI family. Each call opens the port, does its job and closes the port again.

#include "api/call.h"
#include "api/codeset.h"
#include "api/passbook.h"
#include "api/units.h"
#include "device/device.h"
#include "image/file.h"
#include "print/image_oki.h"
#include "print/print_oki.h"

using namespace passbook;

namespace {

/// Where on the document, in dots.
struct Place {
    int xDots, yDots;

    /// `x` in tenths of a millimetre; `y` too or, with the mode for it, in units of 0.165 mm. Fractions of a millimetre
    /// are cut off before the dots are worked out.
    static Place from(int mode, int x, int y) {
        const double unit = mode == PASSBOOK_PT_MODE_0165_MM ? 0.165 : 0.1;
        return {dotsFromMillimetres(static_cast<int>(x * 0.1)), dotsFromMillimetres(static_cast<int>(y * unit))};
    }
};

bool isGood(const char* portName, int timeout, int x, int y, const void* content) {
    return portName != nullptr && timeout >= 0 && x >= 0 && y >= 0 && content != nullptr;
}

template <typename Print>
int printImage(const char* function, const char* portName, int mode, int timeout, int x, int y, const void* image,
               int turns, Print print) {
    if (!isGood(portName, timeout, x, y, image) || turns < PASSBOOK_UPRIGHT || turns > PASSBOOK_TURNED_270)
        return refused(function, PASSBOOK_BAD_ARGUMENT);
    g_timeout = timeout;
    const Place place = Place::from(mode, x, y);
    return recordedOnPort(function, portName, [&] { return print(ImagePlace{place.xDots, place.yDots, turns}); });
}

/// Prints what `text` gives, a text and its length, or says why not. `x` and `y` are what the host has given.
template <typename Text>
int printText(const char* function, const char* portName, int timeout, int x, int y, const Place& place,
              const char* source, LostMove lost, Text text) {
    if (!isGood(portName, timeout, x, y, source))
        return refused(function, PASSBOOK_BAD_ARGUMENT);
    g_timeout = timeout;
    return recordedOnPort(function, portName, [&] {
        int length = 0;
        const ConvertedText converted = text(&length);
        if (converted == nullptr)
            return int{PASSBOOK_PT_NO_TEXT};
        return PrintLineData_OKI(reinterpret_cast<unsigned char*>(converted.get()), length, place.xDots, place.yDots,
                                 lost);
    });
}

}  // namespace

int PT_PrintImageFile(const char* portName, int mode, int timeout, int x, int y, int /*reserved*/, const char* path) {
    return printImage(
        __func__, portName, mode, timeout, x, y, path, PASSBOOK_UPRIGHT,
        [&](const ImagePlace& place) { return printImageFile_OKI(path, place); });
}

int PT_PrintImageFileRevolve(const char* portName, int mode, int timeout, int x, int y, int /*reserved*/,
                             const char* path, int turns) {
    return printImage(
        __func__, portName, mode, timeout, x, y, path, turns,
        [&](const ImagePlace& place) { return printImageFile_OKI(path, place); });
}

int PT_PrintImageStream(const char* portName, int mode, int timeout, int x, int y, int /*reserved*/,
                        const unsigned char* data, int length) {
    return printImage(
        __func__, portName, mode, timeout, x, y, data, PASSBOOK_UPRIGHT,
        [&](const ImagePlace& place) { return printImageStream_OKI(data, length, place, false); });
}

int PT_PrintImageStreamRevolve(const char* portName, int mode, int timeout, int x, int y, int /*reserved*/,
                               const unsigned char* data, int length, int turns) {
    return printImage(
        __func__, portName, mode, timeout, x, y, data, turns,
        [&](const ImagePlace& place) { return printImageStream_OKI(data, length, place, true); });
}

int PT_Eject(const char* portName, int /*reserved*/) {
    return portName != nullptr ? recordedOnPort(__func__, portName, EjectPaper_OKI)
                               : refused(__func__, PASSBOOK_BAD_ARGUMENT);
}

int PT_PrintTxtFile(const char* portName, int mode, int timeout, int x, int y, const char* path) {
    return printText(
        __func__, portName, timeout, x, y, Place::from(mode, x, y), path, LostMove::printsAnyway,
        [&](int* length) {
            unsigned char* content = nullptr;
            int contentLength = 0;
            if (getFileData(path, &content, &contentLength, longestTextBytes) != 0)
                return ConvertedText();
            const FileContents owner(content);
            return toPrinter(reinterpret_cast<const char*>(content), contentLength, length);
        });
}

int PT_PrintTxtStream(const char* portName, int mode, int timeout, int x, int y, const char* text, int length) {
    return printText(
        __func__, portName, timeout, x, y, Place::from(mode, x, y), text, LostMove::printsAnyway,
        [&](int* convertedLength) { return toPrinter(text, length, convertedLength); });
}

int passbook_oki_print_text(const char* portName, int timeout, int xDots, int feedDots, const char* text, int length) {
    return printText(
        __func__, portName, timeout, xDots, feedDots, {xDots, feedDots}, text, LostMove::printsNothing,
        [&](int* convertedLength) { return toPrinter(text, length, convertedLength); });
}
