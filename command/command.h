// Sending commands whole, receiving what a printer answers, and reading away what nobody asked for.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace passbook {

/// Sends one command in one write. True when the transport took all of it.
[[nodiscard]] bool sendCommand(std::span<const unsigned char> command);

/// The same as a result: 0 or -3.
[[nodiscard]] int send(std::span<const unsigned char> command);

/// The same for a command that places ink (see Sending::place).
[[nodiscard]] int sendPlacing(std::span<const unsigned char> command);

/// Sends what becomes dots or characters, in one write. 0 or -3.
[[nodiscard]] int sendInk(std::span<const unsigned char> ink);

/// The same of ink that the printer has been told the length of: it waits for all of it.
[[nodiscard]] int sendAnnouncedInk(std::span<const unsigned char> ink);

/// Reads a reply piece by piece into `reply`: at most `reads` reads, each for what is still missing and each
/// followed by a pause of 100 microseconds, until the reply is full. Returns the number of bytes received;
/// the rest of `reply` stays as it was.
[[nodiscard]] std::size_t receiveReply(std::span<unsigned char> reply, int reads);

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

/// Reads and discards until a read brings nothing; at least one read.
Drained drainPort();

}  // namespace passbook
