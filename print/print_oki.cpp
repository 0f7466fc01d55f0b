#include "print/print_oki.h"

#include <algorithm>
#include <cstdint>

#include "base/results.h"
#include "command/command.h"
#include "command/fields.h"
#include "command/oki.h"
#include "device/device.h"
#include "device/outcome.h"
#include "image/file.h"

namespace passbook {

namespace {

constexpr int maxDistance = 0xFFFF;

/// Sends a command that ends with a count, high byte first.
int sendCounted(Bytes<5> command, int count) {
    putHighFirst(std::span(command).last<2>(), std::clamp(count, 0, maxDistance));
    return sendPlacing(command);
}

/// A line's bytes and CR. The text is on paper once its bytes are sent: what becomes of CR must not make a
/// host print the line again.
int sendLine(const unsigned char* text, int length) {
    if (const int result = sendInk({text, static_cast<std::size_t>(length)}); result != 0)
        return result;
    (void)sendPlacing(carriageReturn);
    headAt(0);
    return 0;
}

/// The lines that PrintLineData_OKI makes of a text.
int countLines(const unsigned char* text, int length) {
    int lines = 1;
    bool empty = false;
    for (int i = 0; i < length; ++i) {
        const bool cut = text[i] == '\n' || text[i] == 0;
        if (cut && empty)
            break;
        lines += !cut && empty ? 1 : 0;
        empty = cut;
    }
    return lines;
}

}  // namespace

int SetYPosition_OKI(int distance) {
    // Divided first: the paper moves in steps of 3 dots. distance * 2 / 3 would be another place.
    int units = distance / 3 * 2;
    constexpr int mostAtOnce = 0xFF;
    while (units > 0) {
        const int feed = std::min(units, mostAtOnce);
        auto command = oki::paperFeed;
        command.back() = static_cast<unsigned char>(feed);
        if (const int result = sendPlacing(command); result != 0)
            return result;
        units -= feed;
        if (!goOn())
            return cancelled;
    }
    paperBy(distance / 3 * 3);
    headAt(0);  // it goes home while the paper moves
    return 0;
}

int SetXPosition_OKI(int distance) {
    const int result = sendCounted(oki::headMove, distance);
    headBy(distance);
    return result;
}

int SetBMPHead_OKI(int columns) {
    return sendCounted(oki::runHead, columns);
}

int EjectPaper_OKI() {
    const bool understood = owedBytes() == 0;
    const int failed = outcome().failedTransfers;
    const int result = sendPlacing(oki::eject);
    if (understood && outcome().failedTransfers == failed)
        findTrack();
    return result;
}

int InsertPaper_OKI(int distance) {
    return SetYPosition_OKI(distance);
}

int InitPrint_OKI(bool second) {
    (void)sendCommand(oki::initialSetting);  // a broken line shows at the job's own commands
    if (second)
        (void)sendCommand(oki::secondInitialSetting);
    (void)sendCommand(carriageReturn);
    return 0;
}

int ResetPrint_OKI() {
    (void)sendCommand(oki::finalSetting);
    (void)sendCommand(oki::secondFinalSetting);
    return 0;
}

int PrintLineData_OKI(unsigned char* text, int length, int x, int y, LostMove lost) {
    const int lines = countLines(text, length);
    if (!goOn(0, lines))
        return cancelled;
    headAt(0);
    paperAt(0);
    int lineLength = stripString(text, length, '\n');
    // A broken line shows at the very next command, whose result counts. A single lost transfer does not.
    if (const int result = SetYPosition_OKI(y); result != 0 && lost == LostMove::printsNothing)
        return result;
    if (isEnding())
        return cancelled;
    if (const int result = SetXPosition_OKI(x); result != 0)
        return result;
    if (const int result = sendLine(text, lineLength); result != 0)
        return result;
    int done = 1;
    for (std::int64_t offset = std::int64_t{lineLength} + 1; offset < length; offset += lineLength + 1, ++done) {
        lineLength = stripString(text + offset, static_cast<int>(length - offset), '\n');
        if (lineLength <= 0)
            break;
        if (!goOn(done, lines))
            return cancelled;
        if (const int result = sendPlacing(lineFeed); result != 0 && lost == LostMove::printsNothing)
            return result;
        paperAt(-1);  // how far the printer knows
        if (const int result = SetXPosition_OKI(x); result != 0)
            return result;
        if (const int result = sendLine(text + offset, lineLength); result != 0)
            return result;
    }
    haveDone(done, lines);
    return 0;
}

int PrintData_OKI(const unsigned char* data, int length, int x, int y) {
    (void)SetYPosition_OKI(y);  // as in PrintLineData_OKI
    if (const int result = SetXPosition_OKI(x); result != 0)
        return result;
    return sendLine(data, length);
}

}  // namespace passbook
