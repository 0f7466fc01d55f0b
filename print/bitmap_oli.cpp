#include <cstdint>
#include <span>

#include "base/results.h"
#include "command/command.h"
#include "command/oli.h"
#include "device/device.h"
#include "print/print_oli.h"
#include "print/raster.h"
#include "print/strips.h"

namespace passbook {

namespace {

/// Absolute positions, runs framed by a head and an end, and time for the head after each strip.
struct OliStrips {
    int xDots;
    int topDots;  // a multiple of 3, as is every strip's first row

    static int begin() {
        (void)sendPlacing(oli::graphicsMode);  // a broken line shows at the first run's data
        return 0;
    }

    static void pack(int width, int rowsLeft, const unsigned char* strip, unsigned char* columns) {
        AdjustDataOrder_OLI(width, rowsLeft, strip, columns);
    }

    void startStrip(int row) const { (void)SetYPosition_OLI(topDots + row); }

    int sendRun(bool first, const unsigned char* columns, int count) const {
        if (first)
            (void)SetXPosition_OLI(xDots);
        SetBMPHead_OLI();
        const std::int64_t bytes = std::int64_t{count} * columnBytes;
        if (bytes > INT32_MAX || sendInk({columns, static_cast<std::size_t>(bytes)}) != 0)
            return notSent;
        SetBMPEnd_OLI();
        return 0;
    }

    int passGap(bool /*first*/, int column, int /*gap*/) const {
        // A position that was not sent whole is not looked at, but one that has no command must not be left
        // out: what follows would be printed where the head happens to be.
        const std::int64_t x = std::int64_t{xDots} + column;
        if (x > INT32_MAX)
            return badArgument;
        return SetXPosition_OLI(static_cast<int>(x)) == badArgument ? badArgument : success;
    }

    static void endStrip() { pauseSeconds(1); }
};

}  // namespace

int SetBMPHead_OLI() {
    (void)sendPlacing(oli::runHead);
    return 0;
}

int SetBMPEnd_OLI() {
    (void)sendInk(oli::runEnd);  // without it the printer may not print the run
    return 0;
}

int SendBMPData_OLI(int width, int height, const unsigned char* image, int x, int y) {
    if (!fitsPage_OLI(x, y))
        return badArgument;
    const int topDots = y / 3 * 3;
    if (height > 0 && (height > INT32_MAX - topDots || !fitsPage_OLI(x, topDots + height - 1)))
        return badArgument;
    return walkStrips(width, height, image, OliStrips{x, topDots});
}

int PrintBmp_OLI(const char* path, bool eject, int x, int y) {
    return printBitmapFile(path, eject, x, y, SendBMPData_OLI, EjectPaper_OLI);
}

}  // namespace passbook
