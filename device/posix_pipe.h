// What the two transports over POSIX device files share: calls that a signal interrupts are made again.
#pragma once

#include <fcntl.h>
#include <sys/file.h>
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

/// Makes an opened device this program's own. Programs that it starts do not inherit it, and no other program of this
/// library gets it until it is closed: two on one line would print through each other and take each other's answers.
/// False when another one has it.
[[nodiscard]] inline bool claimDevice(int fd) {
    (void)fcntl(fd, F_SETFD, FD_CLOEXEC);  // cannot fail on a descriptor that is open
    // Devices that know no locks are used without.
    return retryInterrupted([&] { return flock(fd, LOCK_EX | LOCK_NB); }) == 0 || errno != EWOULDBLOCK;
}

/// One read of at most `length` bytes; stores the count in `length`. 0, or -1 when nothing came; errno is EINTR when
/// that is a signal's fault, and only then.
[[nodiscard]] inline int readOnce(int fd, unsigned char* buffer, int& length) {
    errno = 0;
    if (length < 1)
        return -1;
    const ssize_t count = read(fd, buffer, static_cast<std::size_t>(length));
    if (count <= 0)
        return -1;
    length = static_cast<int>(count);
    return 0;
}

/// One write of `length` bytes. 0 when at least one byte was taken, else -1. What a signal cut off is not sent after
/// it: a caller that is told of a failure would send the whole again, and print twice.
[[nodiscard]] inline int writeOnce(int fd, const unsigned char* data, int length) {
    if (length < 0)
        return -1;
    const ssize_t count = retryInterrupted([&] { return write(fd, data, static_cast<std::size_t>(length)); });
    return count > 0 ? 0 : -1;
}

}  // namespace passbook
