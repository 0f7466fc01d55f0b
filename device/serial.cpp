#include "device/serial.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "device/outcome.h"
#include "device/posix_pipe.h"

namespace passbook {

namespace {

struct Speed {
    int bitsPerSecond;
    speed_t code;
};

/// For the first byte of an answer.
constexpr int readTimeoutMs = 1000;

constexpr Speed speeds[] = {{300, B300},   {1200, B1200},   {2400, B2400},    {4800, B4800},
                            {9600, B9600}, {19200, B19200}, {115200, B115200}};

speed_t speedCode(int bitsPerSecond) {
    const auto* row = std::find_if(std::begin(speeds), std::end(speeds),
                                   [&](const Speed& each) { return each.bitsPerSecond == bitsPerSecond; });
    return row != std::end(speeds) ? row->code : B9600;
}

/// Clears `off`, then sets `on`: the order in which a field of several bits is written.
void change(tcflag_t& modes, tcflag_t off, tcflag_t on) {
    modes = (modes & ~off) | on;
}

void setFlowControl(termios& options, int flowControl) {
    if (flowControl == 0)
        change(options.c_cflag, CRTSCTS, 0);
    else if (flowControl == 1)
        change(options.c_cflag, 0, CRTSCTS);
    else if (flowControl == 2)
        change(options.c_iflag, 0, IXON | IXOFF | IXANY);
}

void setDataBits(termios& options, int dataBits) {
    const tcflag_t size = dataBits == 8 ? CS8 : dataBits == 7 ? CS7 : dataBits == 6 ? CS6 : CS5;
    change(options.c_cflag, CSIZE, size);
}

void setParity(termios& options, int parity) {
    switch (parity) {
        case 'N':
        case 'n':
            change(options.c_cflag, PARENB, 0);
            change(options.c_iflag, INPCK, 0);
            break;
        case 'O':
        case 'o':
            change(options.c_cflag, 0, PARENB | PARODD);
            change(options.c_iflag, 0, INPCK);
            break;
        case 'E':
        case 'e':
            change(options.c_cflag, PARODD, PARENB);
            change(options.c_iflag, 0, INPCK);
            break;
        case 'S':
        case 's':
            change(options.c_cflag, PARENB | CSTOPB, 0);
            break;
        default:
            break;
    }
}

void setStopBits(termios& options, int stopBits) {
    if (stopBits == 1)
        change(options.c_cflag, CSTOPB, 0);
    else if (stopBits == 2)
        change(options.c_cflag, 0, CSTOPB);
}

}  // namespace

Serial::Serial(const char* name) {
    const std::size_t length = std::strlen(name);
    nameFits_ = length < sizeof portName;
    if (nameFits_)
        std::memcpy(portName, name, length);
}

int Serial::OpenDevice() {
    if (!nameFits_) {  // cut short it could be another device's
        explainFailure(ENAMETOOLONG, "the name of the port is longer than %zu characters", sizeof portName - 1);
        return -1;
    }
    char path[256];
    (void)std::snprintf(path, sizeof path, "/dev/%s", portName);
    // Without O_NONBLOCK the open itself would wait for a carrier on a line that has modem control set.
    fd = retryInterrupted([&] { return open(path, O_RDWR | O_NOCTTY | O_NONBLOCK); });
    if (fd < 0) {
        explainOpening(path, errno);
        return -1;
    }
    if (!claimDevice(fd) || retryInterrupted([&] { return fcntl(fd, F_SETFL, 0); }) < 0) {
        explainOpening(path, errno);
        (void)close(fd);
        fd = -1;
        return -1;
    }
    return SetOption(9600, 0, 8, 1, 'N');
}

int Serial::SetOption(int speed, int flowControl, int dataBits, int stopBits, int parity) {
    // Looking at the results would shut out devices below /dev that are not terminals but take bytes all the
    // same.
    termios options{};
    (void)retryInterrupted([&] { return tcgetattr(fd, &options); });
    (void)retryInterrupted([&] { return tcgetattr(fd, &savedOptions); });

    (void)cfsetispeed(&options, speedCode(speed));
    (void)cfsetospeed(&options, speedCode(speed));
    change(options.c_cflag, 0, CLOCAL | CREAD);
    setFlowControl(options, flowControl);
    setDataBits(options, dataBits);
    setParity(options, parity);
    setStopBits(options,
                stopBits);  // behind the parity: space parity clears a bit that two stop bits set again
    change(options.c_oflag, OPOST, 0);
    change(options.c_lflag, ICANON | ECHO | ECHOE | ISIG, 0);
    options.c_cc[VTIME] = readTimeoutMs / 100;  // tenths of a second
    options.c_cc[VMIN] = 0;

    (void)tcflush(fd, TCIFLUSH);  // what an earlier program left unread is nobody's answer
    (void)retryInterrupted([&] { return tcsetattr(fd, TCSANOW, &options); });
    return 0;
}

bool Serial::goesOut() const {
    constexpr int lookEveryMs = 10;
    int waiting = 0;
    int before = 0;
    for (std::int64_t endMs = monotonicMs() + g_writeLimitMs;; pauseMicroseconds(lookEveryMs * 1000)) {
        if (ioctl(fd, TIOCOUTQ, &waiting) != 0 || waiting == 0)
            return true;
        if (waiting != before)
            endMs = monotonicMs() + g_writeLimitMs;
        else if (monotonicMs() > endMs)
            return false;
        before = waiting;
    }
}

int Serial::ReadPipe(unsigned char* buffer) {
    if (readLength < 1)
        return -1;
    // The line's own time-out is no bound for a program that gets signals: after each of them the system waits its
    // second anew.
    const std::int64_t endMs = monotonicMs() + readTimeoutMs;
    for (std::int64_t leftMs = readTimeoutMs; leftMs >= 0; leftMs = endMs - monotonicMs()) {
        pollfd input{fd, POLLIN, 0};
        const int ready = poll(&input, 1, static_cast<int>(leftMs));
        if (ready == 0)
            break;
        // A line that cannot be watched can still be read, and what is wrong with one that hung up the read tells.
        if (ready > 0 || errno != EINTR) {
            if (const int result = readOnce(fd, buffer, readLength); result == 0 || errno != EINTR)
                return result;
        }
    }
    return -1;
}

int Serial::WritePipe(const unsigned char* data) {
    return writeOnce(fd, data, *this);
}

int Serial::CloseDevice() {
    if (g_writeLimitMs > 0 && !goesOut())
        (void)tcflush(fd, TCOFLUSH);  // the printer takes nothing any more, and closing would wait for it
    (void)retryInterrupted([&] { return tcsetattr(fd, TCSADRAIN, &savedOptions); });
    (void)close(fd);  // nothing can be done about a failing close, and the descriptor is gone either way
    fd = -1;
    return 0;
}

}  // namespace passbook
