#include "print/print_oli.h"

#include <array>
#include <cstddef>
#include <span>

#include "device/device.h"
#include "print/fields.h"

namespace passbook {

namespace {

constexpr auto ejectPaper = ascii("\x1BO");           // 1B 4F
constexpr auto insertPaper = ascii("\x1Bl\x1BL000");  // 1B 6C 1B 4C 30 30 30
constexpr auto clearError = ascii("\x1Bl");           // 1B 6C
constexpr auto clearAll = ascii(
    "\x1B"
    "0");  // 1B 30
constexpr auto clearAllAndError = ascii(
    "\x1B"
    "0\x1Bl");                                          // 1B 30 1B 6C
constexpr auto clearErrorAndFeed = ascii("\x1Bl\x0C");  // 1B 6C 0C
constexpr auto statusRequest = ascii("\x1Bj");          // 1B 6A
constexpr auto firmwareRequest = ascii("\x1Bl\x1B b");  // 1B 6C 1B 20 62
constexpr auto boldOn = ascii("\x1B(");                 // 1B 28
constexpr auto boldOff = ascii("\x1B)");                // 1B 29
constexpr auto widthNormal = ascii(
    "\x1B"
    "3");  // 1B 33
constexpr auto widthDouble = ascii(
    "\x1B"
    "4");                                     // 1B 34
constexpr auto hanWidthOne = ascii("\x1Ch");  // 1C 68
constexpr auto hanWidthTwo = ascii("\x1Cj");  // 1C 6A
constexpr auto carriageReturn = ascii("\r");  // 0D
constexpr auto lineBreak = ascii("\r\n");     // 0D 0A

constexpr auto setUp = ascii(
    "\x1Bn"     // 1B 6E
    "\x1B."     // 1B 2E
    "\x1Bl"     // 1B 6C        error clear
    "\x1BQ080"  // 1B 51 30 38 30
    "\x1BZ"     // 1B 5A
    "\x1BJ000"  // 1B 4A 30 30 30
    "\x1BT070"  // 1B 54 30 37 30
    "\x1B&46"   // 1B 26 34 36  line space 46/240 inch
    "\x1B#1"    // 1B 23 31
    "\x1B"
    "a3"        // 1B 61 33     15 characters per inch
    "\x1BR003"  // 1B 52 30 30 33
    "\x1BS5"    // 1B 53 35
    "\x1Bl"     // 1B 6C
    "\x1Bj");   // 1B 6A        status request: its answer is the ready reply
static_assert(setUp.size() == 45);

/// The dots that a horizontal and a vertical command can say.
constexpr int maxXDots = 1499;
constexpr int maxYDots = 7499;

constexpr bool fits(int dots, int most) {
    return dots >= 0 && dots <= most;
}

int send(std::span<const unsigned char> command) {
    return sendCommand(command) ? 0 : -3;
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
    auto command = ascii("\x1B|A000");  // 1B 7C 41 d d d
    // 1/120 inch: multiplied first, so that no dot is lost to the division. The range is tested in dots, for
    // a small negative one would truncate to a valid 0.
    if (!fits(x, maxXDots) || !putDecimal(std::span(command).last<3>(), x * 2 / 3))
        return -1;
    return send(command);
}

int SetYPosition_OLI(int y) {
    auto command = ascii("\x1B/10000");  // 1B 2F 31 d d d d
    // 1/240 inch, but the paper moves in steps of 3 dots: divided first. y * 4 / 3 would be another place.
    if (!fits(y, maxYDots) || !putDecimal(std::span(command).last<4>(), y / 3 * 4))
        return -1;
    return send(command);
}

int PrintData_OLI(const unsigned char* data, int length, int x, int y) {
    if (!fitsPage_OLI(x, y))
        return -1;
    // A line that broke shows at the very next command, whose result counts. A single lost transfer does not.
    (void)SetYPosition_OLI(y);
    if (const int result = SetXPosition_OLI(x); result != 0)
        return result;
    if (SendData(data, length) != length)
        return -3;
    (void)sendCommand(
        carriageReturn);  // the text has been printed; a failure now must not make the host repeat it
    return 0;
}

int SetFontSpace_OLI(double pitch) {
    std::array<unsigned char, 3> command{0x1B, 'a', 0x00};  // 1B 61 p
    for (const PitchCode& row : pitchCodes) {
        // Compared, not cast: a pitch beyond int has no value as an int.
        if (pitch >= row.charactersPerInch && pitch < row.charactersPerInch + 1)
            command[2] = row.code;
    }
    return send(command);
}

int SetFontBold_OLI(int bold) {
    return send(bold != 0 ? boldOn : boldOff);
}

int SetFontWidth_OLI(int width) {
    if (!sendCommand(width == 0 ? widthNormal : widthDouble))
        return -3;
    (void)sendCommand(width == 1 ? hanWidthOne : hanWidthTwo);  // refines the first, which decides
    return 0;
}

int SetFontHeight_OLI(int height) {
    std::array<unsigned char, 4> command{'\n', 0x1B, 'w', 0};  // 0A 1B 77 h
    command[3] = static_cast<unsigned char>('0' + static_cast<unsigned>(height));
    return send(command);
}

int SetLineSpace_OLI(double millimetres) {
    auto command = ascii("\x1B&00");  // 1B 26 d d
    const double steps = millimetres * 240.0 / 25.4;
    // Written so that a value that is not a number is refused, too, before it is made an integer.
    if (!(steps >= 0.0 && steps < 100.0) ||
        !putDecimal(std::span(command).last<2>(), static_cast<int>(steps)))
        return -1;
    return send(command);
}

int SetUnderLine_OLI(int mode) {
    constexpr auto plain = ascii("\x1B*0");   // 1B 2A 30
    constexpr auto first = ascii("\x1B*3");   // 1B 2A 33
    constexpr auto second = ascii("\x1B*4");  // 1B 2A 34
    constexpr auto off = ascii("\x1B+");      // 1B 2B
    switch (mode) {
        case 1:
            return send(first);
        case 2:
            return send(second);
        case 3:
            (void)sendCommand(off);  // its result is not the host's concern
            return 0;
        default:
            return send(plain);
    }
}

int SendLineBreak_OLI() {
    return send(lineBreak);
}

int InsertPaper_OLI() {
    return send(insertPaper);
}

int EjectPaper_OLI() {
    return send(ejectPaper);
}

int ClearError_OLI() {
    return send(clearError);
}

int ClearAll_OLI() {
    return send(clearAll);
}

int Command_OLI(const unsigned char* data, int length) {
    return SendData(data, length) == length ? 0 : -3;
}

int InitPrinter_OLI(int mode, int timeoutSeconds) {
    // Nothing sent before the first reply is looked at: whether the printer heard it shows in its answer.
    if (mode == 1)
        (void)sendCommand(clearError);
    else if (mode == 2)
        (void)sendCommand(clearAllAndError);
    else
        (void)sendCommand(clearErrorAndFeed);
    (void)sendCommand(setUp);

    const Deadline deadline(timeoutSeconds);
    std::array<unsigned char, 256> reply{};
    std::size_t received = 0;
    for (;;) {
        const auto room = std::span(reply).subspan(received);
        received += static_cast<std::size_t>(GetData(room.data(), static_cast<int>(room.size())));
        if (received > 2) {
            if (reply[2] == 'P')
                return 0;
            // Not ready: an error is cleared and the question put again, for as long as there is time.
            (void)ClearError_OLI();
            received = 0;
            (void)sendCommand(statusRequest);
        }
        pauseSeconds(1);
        if (deadline.passed())
            return -30;
    }
}

int GetFWID_OLI(unsigned char* out) {
    constexpr std::size_t headerBytes = 2;
    constexpr std::size_t identifierBytes = 13;
    std::array<unsigned char, headerBytes + identifierBytes + 2> reply{};
    (void)sendCommand(firmwareRequest);  // a printer that did not hear it will not answer
    (void)receiveReply(reply, 6);        // what is missing stays zero
    if (reply[0] != 0x1B || reply[1] != 'b')
        return -4;
    for (std::size_t i = 0; i < identifierBytes; ++i)
        out[i] = reply[headerBytes + i];
    return 0;
}

}  // namespace passbook
