#include <algorithm>
#include <cstdint>

#include "base/results.h"
#include "command/command.h"
#include "device/outcome.h"
#include "print/print_oki.h"
#include "print/raster.h"
#include "print/strips.h"

namespace passbook {

namespace {

constexpr int maxRunColumns = 0xFFFF;

/// A distance that may be beyond int, for a command that keeps it within its own range anyhow.
int nearest(std::int64_t distance) {
    return static_cast<int>(std::clamp<std::int64_t>(distance, 0, INT32_MAX));
}

/// Relative movement: feeds from strip to strip, moves of the head over gaps. Nothing closes a run.
struct OkiStrips {
    int xDots;
    std::int64_t paperRow;  // the row of the picture that the paper stands at; negative above the picture

    static int begin() {
        headAt(0);
        paperAt(0);
        return 0;
    }

    static void pack(int width, int rowsLeft, const unsigned char* strip, unsigned char* columns) {
        AdjustDataOrder(width, rowsLeft, strip, columns);
    }

    void startStrip(int row) {
        (void)SetYPosition_OKI(nearest(row - paperRow));  // a broken line shows at the first run's data
        paperRow = row;
    }

    int sendRun(bool first, const unsigned char* columns, int count) const {
        // More columns than the head can announce would be taken for commands.
        if (count > maxRunColumns)
            return badArgument;
        if (first && xDots != 0)
            (void)SetXPosition_OKI(xDots);
        (void)SetBMPHead_OKI(count);
        const int result = sendAnnouncedInk({columns, static_cast<std::size_t>(count) * columnBytes});
        headBy(count);
        return result;
    }

    /// Before the first run, the way to the picture's left edge is gone together with the gap.
    int passGap(bool first, int /*column*/, int gap) const {
        (void)SetXPosition_OKI(nearest(std::int64_t{gap} + (first ? xDots : 0)));
        return 0;
    }

    static void endStrip() {}
};

}  // namespace

int SendBMPData_OKI(int width, int height, const unsigned char* image, int x, int y) {
    return walkStrips(width, height, image, OkiStrips{x, -std::int64_t{y}});
}

int PrintBmp_OKI(const char* path, bool eject, bool /*unused*/, int x, int y) {
    return printBitmapFile(path, eject, x, y, SendBMPData_OKI, EjectPaper_OKI);
}

}  // namespace passbook
