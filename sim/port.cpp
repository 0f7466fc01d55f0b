#include "sim/port.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#include <utility>

namespace passbook::sim {

namespace {

constexpr std::string_view kDeviceDirectory = "/dev/";

// The system tells when the host has read, but not when it has thrown away what was there: so a piece that
// may not go out yet is looked at again now and then.
constexpr int kHostCheckMs = 20;

// How long the host is awaited between two pieces before the rest of a round is done. One that keeps up reads
// within microseconds.
constexpr int kHostPatienceMs = 2;

// A few looks, with the processor offered to the host in between, bring the next piece out sooner than being
// woken does: a scan has thousands of them.
constexpr int kLooksBeforeSleep = 20;

// Read or handed over in one round at most, so that a host that never pauses
// doesn't keep the caller from its other work.
constexpr int kReadsPerRound = 16;
constexpr int kPiecesPerRound = 64;

bool tryAgain() {
    return errno == EAGAIN || errno == EINTR;
}

}  // namespace

Descriptor::~Descriptor() {
    if (valid()) {
        close(value_);
    }
}

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
}

std::unique_ptr<PtyPort> PtyPort::open(Printer& printer, std::string& error) {
    const auto failed = [&error](const char* what) {
        error = std::string(what) + ": " + std::strerror(errno);
        return nullptr;
    };
    Descriptor line(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    std::array<char, 64> path{};
    if (!line.valid() || grantpt(line.get()) != 0 || unlockpt(line.get()) != 0 ||
        ptsname_r(line.get(), path.data(), path.size()) != 0) {
        return failed("no pseudo-terminal");
    }
    Descriptor hostSide(::open(path.data(), O_RDWR | O_NOCTTY | O_CLOEXEC));
    termios settings{};
    if (!hostSide.valid() || tcgetattr(hostSide.get(), &settings) != 0) {
        return failed(path.data());
    }
    // As a terminal it would echo our answers to the host back to us, and change line ends both ways.
    cfmakeraw(&settings);
    if (tcsetattr(hostSide.get(), TCSANOW, &settings) != 0) {
        return failed(path.data());
    }
    // A host that reads makes room on the line; edge-triggered, that is told every time.
    Descriptor hostReads(epoll_create1(EPOLL_CLOEXEC));
    epoll_event room{};
    room.events = EPOLLOUT | EPOLLET;
    if (!hostReads.valid() || epoll_ctl(hostReads.get(), EPOLL_CTL_ADD, line.get(), &room) != 0) {
        return failed("no pseudo-terminal");
    }
    std::string name(path.data());
    if (name.starts_with(kDeviceDirectory)) {
        name.erase(0, kDeviceDirectory.size());
    }
    return std::unique_ptr<PtyPort>(
        new PtyPort(printer, std::move(line), std::move(hostSide), std::move(hostReads), std::move(name)));
}

PtyPort::PtyPort(Printer& printer, Descriptor line, Descriptor hostSide, Descriptor hostReads,
                 std::string name)
    : printer_(printer),
      line_(std::move(line)),
      hostSide_(std::move(hostSide)),
      hostReads_(std::move(hostReads)),
      name_(std::move(name)),
      start_(std::chrono::steady_clock::now()) {}

bool PtyPort::serve(int timeoutMs, int wakeDescriptor) {
    using std::chrono::milliseconds;
    printer_.advance(now());
    const int patienceMs = std::clamp(timeoutMs, 0, kHostPatienceMs);
    if (!handOver(patienceMs)) {
        return false;
    }
    milliseconds wait(std::max(timeoutMs, 0));
    if (printer_.nextChange() != kNever) {
        // One more, since what is due falls between two milliseconds of the clock.
        wait = std::clamp(printer_.nextChange() - now() + milliseconds(1), milliseconds(0), wait);
    }
    const bool held = outgoing_.empty() && printer_.answerPending();
    if (held) {
        wait = std::min(wait, milliseconds(kHostCheckMs));
    }
    const short room = outgoing_.empty() ? short{0} : short{POLLOUT};
    std::array<pollfd, 3> watched{pollfd{line_.get(), static_cast<short>(POLLIN | room), 0},
                                  pollfd{wakeDescriptor, POLLIN, 0},
                                  pollfd{held ? hostReads_.get() : -1, POLLIN, 0}};
    if (poll(watched.data(), watched.size(), static_cast<int>(wait.count())) < 0 && errno != EINTR) {
        return false;
    }
    printer_.advance(now());
    return takeIn() && handOver(patienceMs);
}

std::chrono::milliseconds PtyPort::now() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start_);
}

bool PtyPort::hostHasReadAll() const {
    // poll() on the queue's side makes the system bring there first what was written a moment ago. But a host
    // can have said that less than so many bytes are nothing to it, so that they have to be counted, too.
    pollfd queue{hostSide_.get(), POLLIN, 0};
    int unread = 0;
    return poll(&queue, 1, 0) == 0 && ioctl(hostSide_.get(), FIONREAD, &unread) == 0 && unread == 0;
}

bool PtyPort::awaitHost(int patienceMs) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(patienceMs);
    for (int looks = 1; !hostHasReadAll(); ++looks) {
        if (looks < kLooksBeforeSleep && patienceMs > 0) {
            sched_yield();
        } else if (std::chrono::steady_clock::now() < limit) {
            epoll_event event{};  // tells no more than that it is worth another look
            (void)epoll_wait(hostReads_.get(), &event, 1, patienceMs);
        } else {
            return false;
        }
    }
    lastStoodAlone_ = false;
    return true;
}

bool PtyPort::handOver(int patienceMs) {
    for (int piece = 0; piece < kPiecesPerRound; ++piece) {
        if (outgoing_.empty()) {
            if (!printer_.answerPending()) {
                return true;
            }
            const bool standsAlone = printer_.answerStandsAlone();
            // A host that reads late must still see the pieces apart.
            if ((standsAlone || lastStoodAlone_) && !awaitHost(patienceMs)) {
                return true;
            }
            outgoing_ = printer_.takeAnswer();
            lastStoodAlone_ = standsAlone;
        }
        const ssize_t written = write(line_.get(), outgoing_.data(), outgoing_.size());
        if (written < 0) {
            return tryAgain();
        }
        outgoing_.erase(outgoing_.begin(), outgoing_.begin() + written);
        if (!outgoing_.empty()) {
            return true;
        }
    }
    return true;
}

bool PtyPort::takeIn() {
    std::array<std::uint8_t, 4096> buffer;
    for (int i = 0; i < kReadsPerRound; ++i) {
        const ssize_t got = read(line_.get(), buffer.data(), buffer.size());
        if (got < 0) {
            return tryAgain();
        }
        if (got == 0) {
            return true;
        }
        printer_.receive(std::span(buffer).first(static_cast<std::size_t>(got)));
    }
    return true;
}

}  // namespace passbook::sim
