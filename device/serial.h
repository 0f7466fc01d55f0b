// The transport for a printer on a serial line.
#pragma once

#include <termios.h>

#include "device/device.h"

namespace passbook {

/// A serial line below /dev, opened at 9600 bits per second, 8 data bits, no parity, one stop bit. A read
/// waits at most one second for the first byte and then takes what is there.
class Serial : public Protocol {
 public:
    /// `portName` is relative to /dev: ttyS0, ttyUSB1, pts/4. One of more than 127 characters cannot be
    /// opened.
    explicit Serial(const char* portName);

    /// 0, or -1 when the device is missing or cannot be opened; nothing stays open then.
    [[nodiscard]] int OpenDevice() override;
    /// One read. 0 when at least one byte came, else -1.
    [[nodiscard]] int ReadPipe(unsigned char* buffer) override;
    /// One write. 0 when at least one byte was taken, else -1.
    [[nodiscard]] int WritePipe(const unsigned char* data) override;
    /// Puts the settings back that the line had, when what was sent has gone out, and closes. Always 0.
    [[nodiscard]] int CloseDevice() override;

    /// Programs the open line. Always 0. Settings that are not named here keep the device's values.
    /// `speed`: 300, 1200, 2400, 4800, 9600, 19200, 115200; anything else is 9600.
    /// `flowControl`: 0 none, 1 RTS/CTS, 2 XON/XOFF; anything else keeps the device's.
    /// `dataBits`: 6, 7, 8; anything else is 5. `stopBits`: 1 or 2; anything else keeps the device's.
    /// `parity`: N, O, E or S (space), either case; anything else keeps the device's.
    int SetOption(int speed, int flowControl, int dataBits, int stopBits, int parity);

 private:
    /// Waits until what was sent is out. False when nothing of it goes out for as long as g_writeLimitMs.
    [[nodiscard]] bool goesOut() const;

    int fd = -1;
    termios savedOptions{};
    char portName[128] = {};
    bool nameFits_ = false;
};

}  // namespace passbook
