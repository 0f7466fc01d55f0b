// The one open connection to the printer: choosing a transport by the port's name, sending, receiving, and
// the clock that every time-out is measured with.
//
// One port per process and one call at a time: nothing here is locked.
#pragma once

#include <cstdint>

namespace passbook {

/// What every transport does. Callers set a length, call, and look only at zero or not zero: the other values
/// differ from one transport to the next and are for a debugger.
class Protocol {
 public:
    int readLength = 0;   ///< before ReadPipe: the buffer's capacity in bytes; after a success: bytes received
    int writeLength = 0;  ///< before WritePipe: bytes to send
    int taken = 0;        ///< after WritePipe: bytes that were taken, also when it failed; -1 nobody knows
    int systemError = 0;  ///< after a failure: errno, or libusb's code below 0

    Protocol() = default;
    Protocol(const Protocol&) = delete;
    Protocol& operator=(const Protocol&) = delete;

    /// Opens the device and makes it ready. 0 on success; a failure leaves nothing open behind it.
    [[nodiscard]] virtual int OpenDevice() = 0;
    /// Receives up to readLength bytes into `buffer`. 0 on success, with the count in readLength.
    [[nodiscard]] virtual int ReadPipe(unsigned char* buffer) = 0;
    /// Sends writeLength bytes. 0 on success.
    [[nodiscard]] virtual int WritePipe(const unsigned char* data) = 0;
    /// Releases the device. 0 on success; anything else means that it is still open.
    [[nodiscard]] virtual int CloseDevice() = 0;

    virtual ~Protocol() = default;
};

// The process-wide state of this module; it stands in device.cpp.

/// The current transport, null when no port is open. Made by PRSinit, destroyed by PRSexit.
extern Protocol* protocol;
/// True while a port is open, whatever its transport.
extern bool usbFlag;
/// USB transfer time-out in seconds, read when a USB port is opened. 10 at first.
extern int g_timeout;
/// How long a serial or parallel printer may take nothing before a write fails, in milliseconds. 0 at first: without
/// limit.
extern int g_writeLimitMs;

/// Opens the port `portName`: "USB" (exactly), a name containing "LPT" or "lpt" (parallel), or a serial
/// device's name below /dev. A port that is already open stays, whatever the name. Returns 0, or -1 when
/// nothing could be opened (a null name included).
[[nodiscard]] int PRSinit(const char* portName);

/// Closes the port. Returns 0 (also when none was open), or 1 when the transport refused: it then stays open.
[[nodiscard]] int PRSexit();

/// Sends `length` bytes in one transport write. Returns `length`, or 0 on failure or without a port.
[[nodiscard]] int SendData(const unsigned char* data, int length);

/// Receives up to `length` bytes. Returns the number received, or 0: failure, time-out, nothing there, no
/// port.
[[nodiscard]] int GetData(unsigned char* buffer, int length);

/// Of a clock that nobody sets.
[[nodiscard]] std::int64_t monotonicMs();
[[nodiscard]] std::int64_t monotonicUs();

/// Wall-clock milliseconds in 32 bits; wraps. Use Deadline rather than comparing readings by hand.
[[nodiscard]] std::int32_t GetTickCount();

/// A time limit that starts when it is made.
class Deadline {
 public:
    /// `seconds` may be anything: a limit beyond 32-bit milliseconds counts as the largest there is.
    explicit Deadline(int seconds);
    /// True when more milliseconds than the limit have gone by, by the 32-bit difference of two clock
    /// readings.
    [[nodiscard]] bool passed() const;

 private:
    std::int32_t start_;
    std::int32_t limitMs_;
};

/// Sleeps. A signal does not cut the pause short, for the printer needs all of it.
void pauseSeconds(unsigned seconds);
void pauseMicroseconds(unsigned microseconds);

}  // namespace passbook
