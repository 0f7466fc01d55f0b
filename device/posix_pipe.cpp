#include "device/posix_pipe.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

namespace passbook {

namespace {

/// While it exists, a write that cannot go on at once fails with EAGAIN.
class NonBlocking {
 public:
    explicit NonBlocking(int fd) : fd_(fd), flags_(fcntl(fd, F_GETFL)) {
        (void)fcntl(fd_, F_SETFL, flags_ | O_NONBLOCK);
    }
    ~NonBlocking() { (void)fcntl(fd_, F_SETFL, flags_); }
    NonBlocking(const NonBlocking&) = delete;
    NonBlocking& operator=(const NonBlocking&) = delete;

 private:
    int fd_, flags_;
};

/// Writes as much as is taken with no pause longer than the limit. The count; errno tells what ended it early.
int writePatiently(int fd, const unsigned char* data, int length) {
    const NonBlocking scope(fd);
    std::int64_t endMs = monotonicMs() + g_writeLimitMs;
    int taken = 0;
    while (taken < length) {
        const ssize_t count = write(fd, data + taken, static_cast<std::size_t>(length - taken));
        if (count > 0) {
            taken += static_cast<int>(count);
            endMs = monotonicMs() + g_writeLimitMs;
            continue;
        }
        if (count < 0 && errno != EAGAIN && errno != EINTR)
            break;
        const std::int64_t leftMs = endMs - monotonicMs();
        if (leftMs <= 0) {
            errno = ETIMEDOUT;
            break;
        }
        pollfd room{fd, POLLOUT, 0};
        (void)poll(&room, 1, static_cast<int>(leftMs));  // the next write tells what it came to
    }
    return taken;
}

}  // namespace

bool claimDevice(int fd) {
    (void)fcntl(fd, F_SETFD, FD_CLOEXEC);  // cannot fail on a descriptor that is open
    // Devices that know no locks are used without.
    return retryInterrupted([&] { return flock(fd, LOCK_EX | LOCK_NB); }) == 0 || errno != EWOULDBLOCK;
}

int readOnce(int fd, unsigned char* buffer, int& length) {
    errno = 0;
    if (length < 1)
        return -1;
    const ssize_t count = read(fd, buffer, static_cast<std::size_t>(length));
    if (count <= 0)
        return -1;
    length = static_cast<int>(count);
    return 0;
}

int writeOnce(int fd, const unsigned char* data, Protocol& port) {
    port.taken = 0;
    port.systemError = 0;
    const int length = port.writeLength;
    if (length < 0)
        return -1;
    if (g_writeLimitMs > 0) {
        port.taken = writePatiently(fd, data, length);
        port.systemError = port.taken < length ? errno : 0;
        return length > 0 && port.taken == length ? 0 : -1;
    }
    const ssize_t count = retryInterrupted([&] { return write(fd, data, static_cast<std::size_t>(length)); });
    if (count < 0)
        port.systemError = errno;
    else
        port.taken = static_cast<int>(count);
    return count > 0 ? 0 : -1;
}

}  // namespace passbook
