#include "print/print_oki.h"

#include <algorithm>
#include <array>
#include <cstdint>

#include "device/device.h"
#include "image/file.h"
#include "print/fields.h"

namespace passbook {

namespace {

constexpr auto carriageReturn = ascii("\r");                 // 0D
constexpr auto lineFeed = ascii("\n");                       // 0A
constexpr auto ejectPaper = ascii("\x1B%5\x10\r\x0C");       // 1B 25 35 10 0D 0C: feed, CR, form feed
constexpr auto initialSetting = ascii("\x1B}Sl\x08");        // 1B 7D 53 6C 08
constexpr auto secondInitialSetting = ascii("\x1B}SF\x10");  // 1B 7D 53 46 10
constexpr auto finalSetting = ascii("\x1B}SF\x20");          // 1B 7D 53 46 20
constexpr auto secondFinalSetting = ascii("\x1B}Sl\xFF");    // 1B 7D 53 6C FF

constexpr int maxDistance = 0xFFFF;

/// Sends a command of three bytes and a count, high byte first.
int sendCounted(std::array<unsigned char, 5> command, int count) {
    putHighFirst(std::span(command).last<2>(), std::clamp(count, 0, maxDistance));
    return sendCommand(command) ? 0 : -3;
}

/// A line's bytes and CR. The text is on paper once its bytes are sent: what becomes of CR must not make a
/// host print the line again.
int sendLine(const unsigned char* text, int length) {
    if (SendData(text, length) != length)
        return -3;
    (void)sendCommand(carriageReturn);
    return 0;
}

}  // namespace

int SetYPosition_OKI(int distance) {
    // Divided first: the paper moves in steps of 3 dots. distance * 2 / 3 would be another place.
    int units = distance / 3 * 2;
    constexpr int mostAtOnce = 0xFF;
    while (units > 0) {
        const int feed = std::min(units, mostAtOnce);
        std::array<unsigned char, 4> command{0x1B, '%', '5', static_cast<unsigned char>(feed)};  // 1B 25 35 n
        if (!sendCommand(command))
            return -3;
        units -= feed;
    }
    return 0;
}

int SetXPosition_OKI(int distance) {
    return sendCounted({0x1B, '%', '3'}, distance);
}  // 1B 25 33 nH nL

int SetBMPHead_OKI(int columns) {
    return sendCounted({0x1B, '%', '1'}, columns);
}  // 1B 25 31 nH nL

int EjectPaper_OKI() {
    return sendCommand(ejectPaper) ? 0 : -3;
}

int InsertPaper_OKI(int distance) {
    return SetYPosition_OKI(distance);
}

int InitPrint_OKI(bool second) {
    (void)sendCommand(initialSetting);  // a broken line shows at the job's own commands
    if (second)
        (void)sendCommand(secondInitialSetting);
    (void)sendCommand(carriageReturn);
    return 0;
}

int ResetPrint_OKI() {
    (void)sendCommand(finalSetting);
    (void)sendCommand(secondFinalSetting);
    return 0;
}

int PrintLineData_OKI(unsigned char* text, int length, int x, int y) {
    int lineLength = stripString(text, length, '\n');
    (void)SetYPosition_OKI(y);  // a broken line shows at the very next command, whose result counts
    if (const int result = SetXPosition_OKI(x); result != 0)
        return result;
    if (const int result = sendLine(text, lineLength); result != 0)
        return result;
    for (std::int64_t offset = std::int64_t{lineLength} + 1; offset < length; offset += lineLength + 1) {
        lineLength = stripString(text + offset, static_cast<int>(length - offset), '\n');
        if (lineLength <= 0)
            return 0;
        (void)sendCommand(lineFeed);  // as above
        if (const int result = SetXPosition_OKI(x); result != 0)
            return result;
        if (const int result = sendLine(text + offset, lineLength); result != 0)
            return result;
    }
    return 0;
}

int PrintData_OKI(const unsigned char* data, int length, int x, int y) {
    (void)SetYPosition_OKI(y);  // as in PrintLineData_OKI
    if (const int result = SetXPosition_OKI(x); result != 0)
        return result;
    return sendLine(data, length);
}

}  // namespace passbook
