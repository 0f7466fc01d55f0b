#include "device/device.h"

#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <limits>
#include <memory>
#include <new>
#include <span>
#include <string_view>

#include "device/outcome.h"
#include "device/parallel.h"
#include "device/serial.h"
#include "device/usb.h"

namespace passbook {

Protocol* protocol = nullptr;
bool usbFlag = false;
int g_timeout = 10;
int g_writeLimitMs = 0;

namespace {

/// The transport that the name asks for, open; null when it cannot be opened.
std::unique_ptr<Protocol> openTransport(const char* portName) {
    const std::string_view name(portName);
    if (name == "USB")
        return openUsb();
    std::unique_ptr<Protocol> transport;
    if (name.find("LPT") != std::string_view::npos || name.find("lpt") != std::string_view::npos)
        transport.reset(new (std::nothrow) Parallel());
    else
        transport.reset(new (std::nothrow) Serial(portName));
    if (transport != nullptr && transport->OpenDevice() != 0)
        transport.reset();
    return transport;
}

std::uint32_t milliseconds(const timeval& time) {
    return static_cast<std::uint32_t>(time.tv_sec) * 1000U + static_cast<std::uint32_t>(time.tv_usec / 1000);
}

constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

timespec monotonicNow() {
    timespec now{};
    (void)clock_gettime(CLOCK_MONOTONIC, &now);  // fails for clocks only that the system does not have
    return now;
}

void pauseNanoseconds(std::int64_t nanoseconds) {
    timespec end = monotonicNow();
    nanoseconds += end.tv_nsec;
    end.tv_sec += static_cast<std::time_t>(nanoseconds / nanosecondsPerSecond);
    end.tv_nsec = static_cast<long>(nanoseconds % nanosecondsPerSecond);
    // Until a moment, not for a time: however many signals come, nothing of the pause is lost and nothing added.
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &end, nullptr) == EINTR) {
    }
}

}  // namespace

int PRSinit(const char* portName) {
    if (usbFlag)
        return 0;
    if (portName == nullptr)
        return -1;
    std::unique_ptr<Protocol> transport = openTransport(portName);
    noteOpening(portName, transport != nullptr);
    if (transport == nullptr)
        return -1;
    protocol = transport.release();
    usbFlag = true;
    return 0;
}

int PRSexit() {
    if (protocol != nullptr) {
        const bool closed = protocol->CloseDevice() == 0;
        noteClosing(closed);
        if (!closed)
            return 1;
        delete protocol;
        protocol = nullptr;
    }
    usbFlag = false;
    return 0;
}

int SendData(const unsigned char* data, int length) {
    const std::span bytes(data, static_cast<std::size_t>(std::max(length, 0)));
    if (protocol == nullptr) {
        noteWrite(bytes, 0, 0);
        return 0;
    }
    protocol->writeLength = length;
    const bool sent = protocol->WritePipe(data) == 0;
    noteWrite(bytes, protocol->taken, protocol->systemError);
    return sent ? length : 0;
}

int GetData(unsigned char* buffer, int length) {
    if (protocol == nullptr)
        return 0;
    protocol->readLength = length;
    if (protocol->ReadPipe(buffer) != 0)
        return 0;
    noteRead({buffer, static_cast<std::size_t>(protocol->readLength)});
    return protocol->readLength;
}

std::int64_t monotonicMs() {
    return monotonicUs() / 1000;
}

std::int64_t monotonicUs() {
    const timespec now = monotonicNow();
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

std::int32_t GetTickCount() {
    timeval now{};
    gettimeofday(&now, nullptr);
    // Unsigned on the way, where wrapping is defined; the conversion to signed is modular since C++20.
    return static_cast<std::int32_t>(milliseconds(now));
}

Deadline::Deadline(int seconds)
    : start_(GetTickCount()),
      limitMs_(static_cast<std::int32_t>(std::clamp<std::int64_t>(std::int64_t{seconds} * 1000,
                                                                  std::numeric_limits<std::int32_t>::min(),
                                                                  std::numeric_limits<std::int32_t>::max()))) {}

bool Deadline::passed() const {
    const auto elapsed =
        static_cast<std::int32_t>(static_cast<std::uint32_t>(GetTickCount()) - static_cast<std::uint32_t>(start_));
    return limitMs_ < elapsed;
}

void pauseSeconds(unsigned seconds) {
    pauseNanoseconds(seconds * nanosecondsPerSecond);
}

void pauseMicroseconds(unsigned microseconds) {
    pauseNanoseconds(std::int64_t{microseconds} * 1000);
}

}  // namespace passbook
