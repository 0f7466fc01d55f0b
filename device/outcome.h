// What becomes of the exported call that is running: every transfer is counted here, whoever made it. Whoever sends
// ink, or what places ink, says so around the sending; nobody else keeps books.
//
// It is also the way out of a call: a host that asked for progress, or that cancels, is heard at goOn().
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace passbook {

/// Of the call that is running or, between two calls, of the last one.
struct Outcome {
    char function[32] = "";
    int result = 0;
    int transfers = 0;        // writes to the printer
    int failedTransfers = 0;  // of these, those that were not taken whole
    int missingAnswers = 0;   // questions that were not answered, or not in a known way
    std::int64_t bytesSent = 0;
    bool inkLeft = false;  // a printable byte may have left the process
    bool inkLost = false;  // not all printable bytes were taken
    bool inPlace = true;   // nothing that places the ink was lost
    int xDots = -1;        // where the last ink was sent to; -1 unknown
    int yDots = -1;
    std::int64_t done = 0;  // strips, lines, bytes of a side, stripes
    std::int64_t total = 0;
    unsigned parts = 0;      // bit 0: the front has a file, or stripe 0 was read; bit 1: the back, or stripe 1
    int systemError = 0;     // errno, or libusb's code below 0, of the first failure
    char message[256] = "";  // of the first failure that had something to say
};

/// The record; only its owner and endCall's caller write there by hand.
[[nodiscard]] const Outcome& outcome();

/// Begins and ends the record of an exported call. endCall returns the result that the host gets: `result`, or
/// cancelled when the call was ended by the host.
void beginCall(const char* function);
[[nodiscard]] int endCall(int result);

/// What the bytes mean that are being sent.
enum class Sending {
    other,
    ink,           ///< they become dots or characters
    announcedInk,  ///< the same, and the printer has been told how many there are: it waits for all of them
    place,  ///< they move the paper or the head to where ink is to come, or frame it: without them it stands elsewhere
};

/// Says so for as long as it lives.
class SendingScope {
 public:
    explicit SendingScope(Sending what);
    ~SendingScope();
    SendingScope(const SendingScope&) = delete;
    SendingScope& operator=(const SendingScope&) = delete;

 private:
    Sending before_;
};

/// The printer of this call counts from where it stands (OKI), and waits for the rest of what was cut. So after a
/// movement that was lost no ink is in its place until a document was ejected, and after a cut command what follows is
/// taken for its rest. Both outlive the call.
void callIsRelative();
/// A document was ejected, or the printer switched on: it counts from the beginning again, and waits for nothing.
void findTrack();
/// How many of the next bytes the printer takes for the rest of something else.
[[nodiscard]] std::int64_t owedBytes();

/// Where the next ink goes, in dots; -1 is unknown.
void headAt(int xDots);
void paperAt(int yDots);
/// The same from where they are.
void headBy(int dots);
void paperBy(int dots);

/// A question was not answered, or not in a known way.
void missAnswer();
/// That part of what the call was to bring is there (see Outcome::parts).
void havePart(unsigned part);

/// How far the call has come, told to the host. False when it wants the call to end here: the caller leaves the line
/// without half a command and returns, whatever its result.
[[nodiscard]] bool goOn(std::int64_t done, std::int64_t total);
/// The same where there is nothing left to end.
void haveDone(std::int64_t done, std::int64_t total);
/// The same where nothing is counted: while something is awaited.
[[nodiscard]] bool goOn();
/// True when goOn() has said so in this call: what else there is to do is left undone.
[[nodiscard]] bool isEnding();

/// Tells why something failed, as printf does; the first of a call counts. `systemError` as in the record.
[[gnu::format(printf, 2, 3)]] void explainFailure(int systemError, const char* format, ...);
/// The same for a device that cannot be opened: what stands in the way, and who could.
void explainOpening(const char* path, int systemError);

/// For the transports' users.
void noteWrite(std::span<const unsigned char> data, int taken, int systemError);
void noteRead(std::span<const unsigned char> data);
void noteOpening(const char* name, bool opened);
void noteClosing(bool closed);

// What the host has set.

/// What a host that traces is told. Fields as in passbook.h.
struct TraceEvent {
    enum Kind : int { callBegins, callEnds, bytesWritten, bytesRead, portOpened, portClosed } kind;
    const char* function;
    int result;
    const unsigned char* data;
    int length;
    int systemError;
    std::int64_t microseconds;  // of the monotonic clock
};
void setTrace(void (*callback)(const TraceEvent& event, void* user), void* user);
void setProgress(int (*callback)(std::int64_t done, std::int64_t total, void* user), void* user);
/// Ends the running call at its next goOn(). From any thread, or from a signal's handler.
void cancelCall();

}  // namespace passbook
