#include "sim/program/pty_port.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <stdlib.h>
#include <sys/epoll.h>
#include <sys/inotify.h>
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

constexpr std::string_view deviceDirectory = "/dev/";

/// The system tells when the host has read, but not when it has thrown away what was there: so a piece that may not go
/// out yet is looked at again now and then.
constexpr int hostCheckMs = 20;

/// How long the host is awaited between two pieces before the rest of a round is done. One that keeps up reads within
/// microseconds.
constexpr int hostPatienceMs = 2;

/// A few looks, with the processor offered to the host in between, bring the next piece out sooner than being woken
/// does: a scan has thousands of them.
constexpr int looksBeforeSleep = 20;

/// Read or handed over in one round at most, so that a host that never pauses doesn't keep the caller from its other
/// work. More bytes than a line holds: it brings them in pieces of any size.
constexpr std::size_t readSize = 4096;
constexpr std::size_t mostAtOnce = 16 * readSize;
constexpr int piecesPerRound = 64;

bool tryAgain() {
    return errno == EAGAIN || errno == EINTR;
}

Descriptor openHostSide(const std::string& path) {
    return Descriptor(open(path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC));
}

}  // namespace

std::unique_ptr<PtyPort> PtyPort::open(Printer& printer, std::string& error) {
    std::optional<Line> line = makeLine(error);
    return line ? std::unique_ptr<PtyPort>(new PtyPort(printer, std::move(*line))) : nullptr;
}

std::optional<PtyPort::Line> PtyPort::makeLine(std::string& error) {
    const auto failed = [&error](const std::string& what) {
        error = what + ": " + std::strerror(errno);
        return std::nullopt;
    };
    Line line;
    line.printerSide = Descriptor(posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    const int printerSide = line.printerSide.get();
    std::array<char, 64> path{};
    if (!line.printerSide.valid() || grantpt(printerSide) != 0 || unlockpt(printerSide) != 0 ||
        ptsname_r(printerSide, path.data(), path.size()) != 0)
        return failed("no pseudo-terminal");
    line.path = path.data();
    line.hostSide = openHostSide(line.path);
    termios settings{};
    if (!line.hostSide.valid() || tcgetattr(line.hostSide.get(), &settings) != 0)
        return failed(line.path);
    // As a terminal it would echo our answers to the host back to us, and change line ends both ways.
    cfmakeraw(&settings);
    if (tcsetattr(line.hostSide.get(), TCSANOW, &settings) != 0)
        return failed(line.path);
    // A host that reads makes room on the line; edge-triggered, that is told every time.
    line.hostReads = Descriptor(epoll_create1(EPOLL_CLOEXEC));
    epoll_event room{};
    room.events = EPOLLOUT | EPOLLET;
    if (!line.hostReads.valid() || epoll_ctl(line.hostReads.get(), EPOLL_CTL_ADD, printerSide, &room) != 0)
        return failed("no pseudo-terminal");
    line.hostEvents = Descriptor(inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!line.hostEvents.valid() || inotify_add_watch(line.hostEvents.get(), line.path.c_str(), IN_OPEN | IN_CLOSE) < 0)
        return failed(line.path + " can't be watched");
    return line;
}

PtyPort::PtyPort(Printer& printer, Line line) : printer_(printer), start_(std::chrono::steady_clock::now()) {
    takeUp(std::move(line));
    printer_.setLine([this](const LineAction& action) { return obeyLine(action); });
}

PtyPort::~PtyPort() {
    printer_.setLine(nullptr);
}

void PtyPort::setPace(int baud, std::size_t buffer) {
    baud_ = baud;
    buffer_ = buffer;
}

void PtyPort::takeUp(Line line) {
    line_ = std::move(line);
    name_ = line_.path.substr(line_.path.starts_with(deviceDirectory) ? deviceDirectory.size() : 0);
    hosts_ = 0;
}

bool PtyPort::obeyLine(const LineAction& action) {
    const auto* const line = std::get_if<action::Line>(&action);
    if (line == nullptr)
        return false;
    if (line->what == action::Line::What::back)
        return lineIsBack();
    if (!line_.printerSide.valid())
        return false;  // what is cut can't be cut once more
    backAt_ = line->time ? std::optional(now() + *line->time) : std::nullopt;
    if (line->what == action::Line::What::stall) {
        held_ = true;
        holdHosts(true);
        printer_.lineChanged(event::Line::What::stalled, name_);
    } else {
        drop();
    }
    return true;
}

void PtyPort::drop() {
    line_ = Line();
    held_ = hostsHeld_ = lastStoodAlone_ = false;
    incoming_.clear();
    printer_.forgetAnswers(std::exchange(outgoing_, {}).size());
    printer_.lineChanged(event::Line::What::dropped, std::exchange(name_, {}));
    tellOfHost(false);
}

bool PtyPort::lineIsBack() {
    backAt_.reset();
    if (!held())
        return true;
    held_ = false;
    if (!line_.printerSide.valid()) {
        std::string error;
        std::optional<Line> line = makeLine(error);
        if (!line)
            return false;
        takeUp(std::move(*line));
    }
    holdHosts(false);
    printer_.lineChanged(event::Line::What::back, name_);
    return true;
}

void PtyPort::tellOfHost(bool there) {
    if (std::exchange(hasHost_, there) != there)
        printer_.hostChanged(there);
}

void PtyPort::holdHosts(bool hold) {
    // As a printer does whose buffer is full: the host's next write waits.
    if (line_.hostSide.valid() && std::exchange(hostsHeld_, hold) != hold)
        (void)tcflow(line_.hostSide.get(), hold ? TCOOFF : TCOON);
}

bool PtyPort::serve(int timeoutMs, int wakeDescriptor) {
    using std::chrono::milliseconds;
    printer_.advance(now());
    if (backAt_ && *backAt_ <= now())
        (void)lineIsBack();  // the system may have a pseudo-terminal to give again later
    const int patienceMs = std::clamp(timeoutMs, 0, hostPatienceMs);
    if (!handOver(patienceMs))
        return false;
    milliseconds wait = std::clamp(untilNextDeed(), milliseconds(0), milliseconds(std::max(timeoutMs, 0)));
    const bool waiting = outgoing_.empty() && printer_.answerPending() && !held();
    if (waiting)
        wait = std::min(wait, milliseconds(hostCheckMs));
    const short room = outgoing_.empty() || preciseNow() < outFreeAt_ ? short{0} : short{POLLOUT};
    const short more = incoming_.empty() || incoming_.size() < buffer_ ? short{POLLIN} : short{0};
    std::array<pollfd, 4> watched{pollfd{line_.printerSide.get(), static_cast<short>(more | room), 0},
                                  pollfd{line_.hostEvents.get(), POLLIN, 0}, pollfd{wakeDescriptor, POLLIN, 0},
                                  pollfd{waiting ? line_.hostReads.get() : -1, POLLIN, 0}};
    if (held())
        watched[0].fd = watched[1].fd = -1;
    if (poll(watched.data(), watched.size(), static_cast<int>(wait.count())) < 0 && errno != EINTR)
        return false;
    return takeRound() && handOver(patienceMs);
}

std::chrono::milliseconds PtyPort::untilNextDeed() const {
    using std::chrono::milliseconds;
    milliseconds next = std::min(printer_.nextChange(), backAt_.value_or(never));
    const auto at = [](std::chrono::microseconds time) { return std::chrono::duration_cast<milliseconds>(time); };
    if (!incoming_.empty())
        next = std::min(next, at(inFreeAt_ + timeFor(1)));
    if (!outgoing_.empty() && preciseNow() < outFreeAt_)
        next = std::min(next, at(outFreeAt_));
    // One more, since what is due falls between two milliseconds of the clock.
    return next == never ? never : next - now() + milliseconds(1);
}

std::chrono::milliseconds PtyPort::now() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(preciseNow());
}

std::chrono::microseconds PtyPort::preciseNow() const {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start_);
}

std::chrono::microseconds PtyPort::timeFor(std::size_t bytes) const {
    constexpr std::size_t bitsAByte = 10;
    return std::chrono::microseconds(baud_ > 0 ? bytes * bitsAByte * 1'000'000 / static_cast<std::size_t>(baud_) : 0);
}

bool PtyPort::hostHasReadAll() const {
    // poll() on the queue's side makes the system bring there first what was written a moment ago. But a host can have
    // said that less than so many bytes are nothing to it, so that they have to be counted, too.
    pollfd queue{line_.hostSide.get(), POLLIN, 0};
    int unread = 0;
    return poll(&queue, 1, 0) == 0 && ioctl(line_.hostSide.get(), FIONREAD, &unread) == 0 && unread == 0;
}

bool PtyPort::awaitHost(int patienceMs) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(patienceMs);
    for (int looks = 1; !hostHasReadAll(); ++looks) {
        if (looks < looksBeforeSleep && patienceMs > 0) {
            sched_yield();
        } else if (std::chrono::steady_clock::now() < limit) {
            epoll_event event{};  // tells no more than that it is worth another look
            (void)epoll_wait(line_.hostReads.get(), &event, 1, patienceMs);
        } else {
            return false;
        }
    }
    lastStoodAlone_ = false;
    return true;
}

bool PtyPort::handOver(int patienceMs) {
    if (held())
        return true;
    for (int piece = 0; piece < piecesPerRound; ++piece) {
        if (outgoing_.empty()) {
            if (!printer_.answerPending())
                return true;
            const bool standsAlone = printer_.answerStandsAlone();
            // A host that reads late must still see the pieces apart.
            if ((standsAlone || lastStoodAlone_) && !awaitHost(patienceMs))
                return true;
            outgoing_ = printer_.takeAnswer();
            lastStoodAlone_ = standsAlone;
            outFreeAt_ = std::max(outFreeAt_, preciseNow()) + timeFor(outgoing_.size());
        }
        if (baud_ > 0 && preciseNow() < outFreeAt_)
            return true;
        const ssize_t written = write(line_.printerSide.get(), outgoing_.data(), outgoing_.size());
        if (written < 0)
            return tryAgain();
        outgoing_.erase(outgoing_.begin(), outgoing_.begin() + written);
        if (!outgoing_.empty())
            return true;
    }
    return true;
}

bool PtyPort::takeIn() {
    const bool taken = takeRound();
    deliver(true);
    return taken;
}

bool PtyPort::takeRound() {
    printer_.advance(now());
    deliver(false);
    std::vector<std::uint8_t> bytes;
    for (std::size_t taken = 0; taken < mostAtOnce && !held(); taken += bytes.size()) {
        const std::size_t room = baud_ > 0 ? buffer_ - std::min(buffer_, incoming_.size()) : readSize;
        holdHosts(room == 0);
        bytes.resize(std::min(room, readSize));
        const ssize_t got = room == 0 ? 0 : read(line_.printerSide.get(), bytes.data(), bytes.size());
        if (got < 0 && !tryAgain())
            return false;
        bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(got, 0)));
        // A host has opened the line before it sends: whatever there is for a former one must go before these bytes are
        // answered.
        const std::optional<Hosts> hosts = lookForHosts(bytes);
        if (!hosts)
            return false;
        if (*hosts == Hosts::changed) {
            forgetAnswers();
            tellOfHost(false);
        }
        if (hosts_ > 0 || !bytes.empty())
            tellOfHost(true);
        if (incoming_.empty())
            inFreeAt_ = std::max(inFreeAt_, preciseNow());
        if (!bytes.empty())
            printer_.transferBegins();
        incoming_.insert(incoming_.end(), bytes.begin(), bytes.end());
        deliver(false);
        if (*hosts == Hosts::gone) {
            forgetAnswers();
            tellOfHost(false);
        }
        if (got <= 0)
            return true;
    }
    return true;
}

void PtyPort::deliver(bool all) {
    while (!incoming_.empty() && !held()) {
        std::size_t size = incoming_.size();
        if (baud_ > 0 && !all) {
            const std::chrono::microseconds passed = preciseNow() - inFreeAt_;
            while (size > 0 && timeFor(size) > passed)
                size = timeFor(size) / 2 > passed ? size / 2 : size - 1;
            if (size == 0)
                return;
            inFreeAt_ += timeFor(size);
        }
        const std::size_t taken = printer_.receive(std::span(incoming_).first(size));
        if (!incoming_.empty())
            incoming_.erase(incoming_.begin(), incoming_.begin() + static_cast<std::ptrdiff_t>(taken));
    }
}

PtyPort::Events PtyPort::countHosts() {
    Events events;
    std::array<char, 16384> buffer;
    const ssize_t got = read(line_.hostEvents.get(), buffer.data(), buffer.size());
    for (std::size_t at = 0; got > 0 && at < static_cast<std::size_t>(got); at += sizeof(inotify_event)) {
        inotify_event event{};  // without a name behind it: only those of directories have one
        std::memcpy(&event, buffer.data() + at, sizeof event);
        if ((event.mask & IN_OPEN) != 0) {
            events.opened = true;
            ++hosts_;
        } else if ((event.mask & IN_CLOSE) != 0) {
            hosts_ = std::max(hosts_ - 1, 0);
            events.closed = true;
            events.unheld = events.unheld || hosts_ == 0;
        }
    }
    return events;
}

std::optional<PtyPort::Hosts> PtyPort::lookForHosts(std::vector<std::uint8_t>& bytes) {
    if (!countHosts().unheld)
        return Hosts::asBefore;
    if (hosts_ > 0)
        return Hosts::changed;
    // By the count nobody is there. It can be wrong: two hosts that open the line at one moment are told of as one.
    // With our own side closed, the line itself says it. A host's claim to have it alone ends as well, as on a serial
    // line.
    for (bool opened = false;;) {
        (void)ioctl(line_.hostSide.get(), TIOCNXCL);
        line_.hostSide = Descriptor();
        const bool gone = takeAllOfGoneHosts(bytes);
        opened = countHosts().opened || opened;
        if (!gone && !opened) {
            // The opening of one that has just come may still be on its way to us.
            pollfd events{line_.hostEvents.get(), POLLIN, 0};
            opened = poll(&events, 1, hostPatienceMs) > 0 && countHosts().opened;
        }
        line_.hostSide = openHostSide(line_.path);
        if (!line_.hostSide.valid())
            return std::nullopt;
        const bool closed = countHosts().closed;
        hosts_ = std::max(hosts_ - 1, gone ? 0 : 1);  // less our own opening
        // The one that was there may have gone meanwhile, and nothing more would tell of it.
        if (gone || !closed)
            return gone ? Hosts::gone : opened ? Hosts::changed : Hosts::asBefore;
    }
}

/// Adds what is left in the line. False if a host has it open.
bool PtyPort::takeAllOfGoneHosts(std::vector<std::uint8_t>& bytes) {
    std::array<std::uint8_t, readSize> buffer;
    // The system looks for bytes first and for hosts next. Only a second look that finds neither tells that there were
    // no bytes any more when the last host was gone.
    for (int looks = 0; looks < 2 && bytes.size() < mostAtOnce;) {
        const ssize_t got = read(line_.printerSide.get(), buffer.data(), buffer.size());
        if (got > 0) {
            bytes.insert(bytes.end(), buffer.begin(), buffer.begin() + got);
            looks = 0;
        } else if (got < 0 && errno == EIO) {
            ++looks;
        } else {
            return false;
        }
    }
    return bytes.size() < mostAtOnce;
}

void PtyPort::forgetAnswers() {
    if (!line_.hostSide.valid())
        return;
    (void)hostHasReadAll();  // brings all that was written to where it is counted
    int unread = 0;
    (void)ioctl(line_.hostSide.get(), FIONREAD, &unread);
    (void)tcflush(line_.hostSide.get(), TCIFLUSH);
    printer_.forgetAnswers(static_cast<std::size_t>(std::max(unread, 0)) + outgoing_.size());
    outgoing_.clear();
    lastStoodAlone_ = false;
}

}  // namespace passbook::sim
