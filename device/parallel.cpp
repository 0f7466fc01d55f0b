#include "device/parallel.h"

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "device/outcome.h"
#include "device/posix_pipe.h"

namespace passbook {

int Parallel::OpenDevice() {
    const char* prefix = "/dev/lp";
    if (access("/dev/parallel/", F_OK) == 0)
        prefix = "/dev/parallel/";
    else if (access("/dev/printers", F_OK) == 0)
        prefix = "/dev/printers/";

    for (int n = 0; n < 4; ++n) {
        char path[64];
        (void)std::snprintf(path, sizeof path, "%s%d", prefix, n);  // the longest is far below 64 characters
        fd = retryInterrupted([&] { return open(path, O_RDWR | O_EXCL); });
        if (fd >= 0 && claimDevice(fd))
            break;
        // The one that is there tells more than the ones that are not.
        if (errno != ENOENT || n == 3)
            explainOpening(path, errno);
        if (fd >= 0)
            (void)close(fd);
        fd = -1;
    }
    if (fd < 0)
        return -1;

    // Some parallel drivers show a terminal, whose line editing would hold replies back. On a plain printer
    // device both calls fail and nothing needs doing, so their results say nothing.
    termios options{};
    (void)retryInterrupted([&] { return tcgetattr(fd, &options); });
    options.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO | ISIG);
    (void)retryInterrupted([&] { return tcsetattr(fd, TCSANOW, &options); });
    return 0;
}

int Parallel::ReadPipe(unsigned char* buffer) {
    return retryInterrupted([&] { return readOnce(fd, buffer, readLength); });
}

int Parallel::WritePipe(const unsigned char* data) {
    return writeOnce(fd, data, *this);
}

int Parallel::CloseDevice() {
    (void)close(fd);  // nothing can be done about a failing close, and the descriptor is gone either way
    return 0;
}

}  // namespace passbook
