#include "print/print_oli.h"

#include <array>
#include <cstddef>
#include <span>

#include "base/results.h"
#include "command/command.h"
#include "command/fields.h"
#include "command/oli.h"
#include "device/device.h"
#include "device/outcome.h"

namespace passbook {

namespace {

/// The dots that a horizontal and a vertical command can say.
constexpr int maxXDots = 1499;
constexpr int maxYDots = 7499;

constexpr bool fits(int dots, int most) {
    return dots >= 0 && dots <= most;
}

struct PitchCode {
    int charactersPerInch;
    unsigned char code;
};

constexpr PitchCode pitchCodes[] = {{10, '1'}, {12, '2'}, {15, '3'}, {16, '4'}, {17, '8'}};

}  // namespace

bool fitsPage_OLI(int x, int y) {
    return fits(x, maxXDots) && fits(y, maxYDots);
}

int SetXPosition_OLI(int x) {
    auto command = oli::horizontalPosition;
    // 1/120 inch: multiplied first, so that no dot is lost to the division. The range is tested in dots, for
    // a small negative one would truncate to a valid 0.
    if (!fits(x, maxXDots) || !putDecimal(std::span(command).last<3>(), x * 2 / 3))
        return badArgument;
    const int result = sendPlacing(command);
    headAt(result == 0 ? x : -1);
    return result;
}

int SetYPosition_OLI(int y) {
    auto command = oli::verticalPosition;
    // 1/240 inch, but the paper moves in steps of 3 dots: divided first. y * 4 / 3 would be another place.
    if (!fits(y, maxYDots) || !putDecimal(std::span(command).last<4>(), y / 3 * 4))
        return badArgument;
    const int result = sendPlacing(command);
    paperAt(result == 0 ? y : -1);
    return result;
}

int PrintData_OLI(const unsigned char* data, int length, int x, int y, LostMove lost) {
    if (!fitsPage_OLI(x, y))
        return badArgument;
    if (!goOn(0, 1))
        return cancelled;
    // A line that broke shows at the very next command, whose result counts. A single lost transfer does not.
    if (const int result = SetYPosition_OLI(y); result != 0 && lost == LostMove::printsNothing)
        return result;
    if (const int result = SetXPosition_OLI(x); result != 0)
        return result;
    if (const int result = sendInk({data, static_cast<std::size_t>(length)}); result != 0)
        return result;
    haveDone(1, 1);
    (void)sendCommand(carriageReturn);  // the text has been printed; a failure now must not make the host repeat it
    return 0;
}

int SetFontSpace_OLI(double pitch) {
    auto command = oli::pitch;
    command.back() = 0;  // for a pitch that the printer has no code for
    for (const PitchCode& row : pitchCodes) {
        // Compared, not cast: a pitch beyond int has no value as an int.
        if (pitch >= row.charactersPerInch && pitch < row.charactersPerInch + 1)
            command.back() = row.code;
    }
    return send(command);
}

int SetFontBold_OLI(int bold) {
    return send(bold != 0 ? oli::boldOn : oli::boldOff);
}

int SetFontWidth_OLI(int width) {
    if (!sendCommand(width == 0 ? oli::widthNormal : oli::widthDouble))
        return notSent;
    (void)sendCommand(width == 1 ? oli::hanWidthOne : oli::hanWidthTwo);  // refines the first, which decides
    return 0;
}

int SetFontHeight_OLI(int height) {
    auto command = oli::fontHeight;
    command.back() = static_cast<unsigned char>('0' + static_cast<unsigned>(height));
    return send(command);
}

int SetLineSpace_OLI(double millimetres) {
    auto command = oli::lineSpace;
    const double steps = millimetres * 240.0 / 25.4;
    // Written so that a value that is not a number is refused, too, before it is made an integer.
    if (!(steps >= 0.0 && steps < 100.0) || !putDecimal(std::span(command).last<2>(), static_cast<int>(steps)))
        return badArgument;
    return send(command);
}

int SetUnderLine_OLI(int mode) {
    switch (mode) {
        case 1:
            return send(oli::underlineFirst);
        case 2:
            return send(oli::underlineSecond);
        case 3:
            (void)sendCommand(oli::underlineOff);  // its result is not the host's concern
            return 0;
        default:
            return send(oli::underlinePlain);
    }
}

int SendLineBreak_OLI() {
    return send(oli::lineBreak);
}

int InsertPaper_OLI() {
    return send(oli::insert);
}

int EjectPaper_OLI() {
    return send(oli::eject);
}

int ClearError_OLI() {
    return send(oli::clearError);
}

int ClearAll_OLI() {
    return send(oli::clearAll);
}

int Command_OLI(const unsigned char* data, int length) {
    return sendInk({data, static_cast<std::size_t>(length)});  // it may be anything
}

int InitPrinter_OLI(int mode, int timeoutSeconds) {
    // Nothing sent before the first reply is looked at: whether the printer heard it shows in its answer.
    if (mode == 1)
        (void)sendCommand(oli::clearError);
    else if (mode == 2)
        (void)sendCommand(joined(oli::clearAll, oli::clearError));
    else
        (void)sendCommand(joined(oli::clearError, formFeed));
    (void)sendCommand(oli::setUp);

    const Deadline deadline(timeoutSeconds);
    std::array<unsigned char, 256> reply{};
    std::size_t received = 0;
    int heard = -1;  // the status byte of the last answer
    for (;;) {
        const auto room = std::span(reply).subspan(received);
        received += static_cast<std::size_t>(GetData(room.data(), static_cast<int>(room.size())));
        if (received > 2) {
            if (reply[2] == 'P')
                return 0;
            heard = reply[2];
            // Not ready: an error is cleared and the question put again, for as long as there is time.
            (void)ClearError_OLI();
            received = 0;
            (void)sendCommand(oli::printerStatus);
        }
        pauseSeconds(1);
        if (deadline.passed() || !goOn()) {
            missAnswer();
            if (heard < 0)
                explainFailure(0, "the printer does not answer: see whether it is on, and of the OLI family");
            else
                explainFailure(0, "the printer answers, but is not ready: its status byte is %02X", heard);
            return notReady;
        }
    }
}

int GetFWID_OLI(unsigned char* out) {
    constexpr std::size_t headerBytes = 2;
    constexpr std::size_t identifierBytes = 13;
    std::array<unsigned char, headerBytes + identifierBytes + 2> reply{};
    (void)sendCommand(oli::firmware);  // a printer that did not hear it will not answer
    (void)receiveReply(reply, 6);      // what is missing stays zero
    if (reply[0] != escapeByte || reply[1] != 'b') {
        missAnswer();
        return noAnswer;
    }
    for (std::size_t i = 0; i < identifierBytes; ++i)
        out[i] = reply[headerBytes + i];
    return 0;
}

}  // namespace passbook
