// What the two transports over POSIX device files share: calls that a signal interrupts are made again.
#pragma once

#include <cerrno>

#include "device/device.h"

namespace passbook {

/// Repeats `call` for as long as it fails with EINTR. Not for close: on Linux the descriptor is gone even
/// then.
template <typename Call>
auto retryInterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

/// Makes an opened device this program's own. Programs that it starts do not inherit it, and no other program of this
/// library gets it until it is closed: two on one line would print through each other and take each other's answers.
/// False when another one has it; errno tells that.
[[nodiscard]] bool claimDevice(int fd);

/// One read of at most `length` bytes; stores the count in `length`. 0, or -1 when nothing came; errno is EINTR when
/// that is a signal's fault, and only then.
[[nodiscard]] int readOnce(int fd, unsigned char* buffer, int& length);

/// WritePipe on a descriptor: one write. 0 when at least one byte was taken, else -1. What a signal cut off is not sent
/// after it: a caller that is told of a failure would send the whole again, and print twice.
/// With g_writeLimitMs it goes on until all is taken or nothing has been for that long: 0 when all was taken, else -1.
[[nodiscard]] int writeOnce(int fd, const unsigned char* data, Protocol& port);

}  // namespace passbook
