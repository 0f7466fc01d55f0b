// What the two transports over POSIX device files share: calls that a signal interrupts are made again.
#pragma once

#include <unistd.h>

#include <cerrno>

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

/// One read of at most `length` bytes; stores the count in `length`. 0, or -1 when nothing came.
[[nodiscard]] inline int readOnce(int fd, unsigned char* buffer, int& length) {
    if (length < 0)
        return -1;
    const ssize_t count =
        retryInterrupted([&] { return read(fd, buffer, static_cast<std::size_t>(length)); });
    if (count <= 0)
        return -1;
    length = static_cast<int>(count);
    return 0;
}

/// One write of `length` bytes. 0 when at least one byte was taken, else -1. What a signal cut off is not sent after it: a
/// caller that is told of a failure would send the whole again, and print twice.
[[nodiscard]] inline int writeOnce(int fd, const unsigned char* data, int length) {
    if (length < 0)
        return -1;
    const ssize_t count = retryInterrupted([&] { return write(fd, data, static_cast<std::size_t>(length)); });
    return count > 0 ? 0 : -1;
}

}  // namespace passbook
