// The one open connection to the printer: choosing a transport by the port's name, sending, receiving, and
// the clock that every time-out is measured with.
//
// One port per process and one call at a time: nothing here is locked.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace passbook {

/// What every transport does. Callers set a length, call, and look only at zero or not zero: the other values
/// differ from one transport to the next and are for a debugger.
class Protocol {
 public:
    int readLength = 0;  ///< before ReadPipe: the buffer's capacity in bytes; after a success: bytes received
    int writeLength = 0;  ///< before WritePipe: bytes to send

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

/// How long we put up with bytes that are of no use before we give the line up. What is left of the largest scan, A4 in
/// colour at 600 dots per inch, has come by then over USB at full speed.
inline constexpr int patienceSeconds = 120;

/// Puts up with bytes of no use for patienceSeconds, on the monotonic clock: somebody who sets the wall clock must not
/// end a scan. Silence is no matter of patience, each read has its own bound for that.
class Patience {
 public:
    /// Something of use has come: the patience begins anew with the next that is of no use.
    void renew() { tried_ = false; }
    /// Something of no use has come. True when such has come for longer than the patience, and nothing else between.
    [[nodiscard]] bool ends();

 private:
    bool tried_ = false;
    std::int64_t sinceMs_ = 0;
};

/// What a drain came to.
enum class Drained {
    nothing,       ///< the first read brought nothing
    untilSilence,  ///< bytes were discarded until a read brought nothing
    gaveUp,        ///< bytes were discarded, and there was no end to them (see Patience)
};

/// Reads and discards until a read brings nothing, `bytesPerRead` (at most 256) at a time; at least one read.
Drained drainPort(int bytesPerRead);

/// Milliseconds of a clock that nobody sets.
[[nodiscard]] std::int64_t monotonicMs();

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

/// Sends one command whole. True when the transport took all of it.
[[nodiscard]] bool sendCommand(std::span<const unsigned char> command);

/// Makes a command of a text literal, so that a table shows the ASCII spelling of what the bytes say.
template <std::size_t N>
[[nodiscard]] consteval std::array<unsigned char, N - 1> ascii(const char (&text)[N]) {
    std::array<unsigned char, N - 1> bytes{};
    for (std::size_t i = 0; i + 1 < N; ++i)
        bytes[i] = static_cast<unsigned char>(text[i]);
    return bytes;
}

/// Reads a reply piece by piece into `reply`: at most `reads` reads, each for what is still missing and each
/// followed by a pause of 100 microseconds, until the reply is full. Returns the number of bytes received;
/// the rest of `reply` stays as it was.
[[nodiscard]] std::size_t receiveReply(std::span<unsigned char> reply, int reads);

}  // namespace passbook
