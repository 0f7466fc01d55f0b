#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "sim/printer.h"
#include "sim/program/descriptor.h"

namespace passbook::sim {

/// What a pseudo-terminal hands over in one read, at most.
inline constexpr std::size_t ptyBlock = 4095;

/// Connects a printer to a pseudo-terminal, which a host opens like a serial port, as often as it likes.
///
/// When the last host closes the line, what it sent is printed, and what it has not read is lost: the next one does not
/// get it. The system tells of the closing a moment later. A host that opens the line and reads within that moment may
/// find an answer, and what a former one sent within it is answered to the next.
class PtyPort {
 public:
    /// Null if the system has no pseudo-terminal to give; `error` then says why. The printer must outlive the port.
    [[nodiscard]] static std::unique_ptr<PtyPort> open(Printer& printer, std::string& error);
    ~PtyPort();
    PtyPort(const PtyPort&) = delete;
    PtyPort& operator=(const PtyPort&) = delete;

    /// Paces the line: so many bits a second, ten a byte, into a printer that keeps `buffer` bytes of what it has not
    /// come to yet. Whatever the system itself holds comes in front of that.
    void setPace(int baud, std::size_t buffer);

    /// What a host opens: the device's name relative to /dev, "pts/7". Empty while the line is dropped. One that comes
    /// back has a new name.
    [[nodiscard]] const std::string& name() const { return name_; }

    /// One round: waits until the host has sent something, something is due at the slot, `wakeDescriptor` is readable
    /// or the time is up, and does what there is to do. Never waits longer than `timeoutMs` (and often less), however
    /// slow the host reads. False if the pseudo-terminal has failed.
    ///
    /// Call it again and again, from one thread, and touch the printer from that thread only.
    [[nodiscard]] bool serve(int timeoutMs, int wakeDescriptor = -1);

    /// Takes in what hosts have sent until now: all that the line can hold, and not much more of a host that goes on
    /// sending. Answers nothing. False if the pseudo-terminal has failed.
    [[nodiscard]] bool takeIn();

    /// Whether a host has the line open.
    [[nodiscard]] bool hasHost() const { return hasHost_; }

 private:
    /// What has become of the hosts since the last look.
    enum class Hosts {
        asBefore,
        changed,  // the last one has closed the line and another has opened it
        gone,
    };

    struct Line {
        Descriptor printerSide;
        Descriptor hostSide;    // ours, so that the line stays up while no host has it open
        Descriptor hostReads;   // tells that the host may have read
        Descriptor hostEvents;  // tells that a host has opened the line or closed it
        std::string path;
    };
    struct Events {
        bool opened = false;  // by a host, at least once
        bool closed = false;
        bool unheld = false;  // no host had the line open, for a moment or until now
    };

    PtyPort(Printer& printer, Line line);
    [[nodiscard]] static std::optional<Line> makeLine(std::string& error);
    void takeUp(Line line);
    [[nodiscard]] bool obeyLine(const LineAction& action);
    [[nodiscard]] bool lineIsBack();
    void drop();
    /// Tells the printer who is there now.
    void tellOfHost(bool there);
    /// Has the printer take what has come from the host, as fast as the pace allows, or all of it.
    void deliver(bool all);
    /// Lets hosts feel that there is no more room.
    void holdHosts(bool hold);
    [[nodiscard]] bool takeRound();
    [[nodiscard]] bool held() const { return held_ || !line_.printerSide.valid(); }
    [[nodiscard]] std::chrono::microseconds timeFor(std::size_t bytes) const;
    [[nodiscard]] std::chrono::microseconds preciseNow() const;
    [[nodiscard]] std::chrono::milliseconds untilNextDeed() const;

    [[nodiscard]] std::chrono::milliseconds now() const;
    [[nodiscard]] bool hostHasReadAll() const;
    [[nodiscard]] bool awaitHost(int patienceMs);
    [[nodiscard]] bool handOver(int patienceMs);
    [[nodiscard]] std::optional<Hosts> lookForHosts(std::vector<std::uint8_t>& bytes);
    [[nodiscard]] Events countHosts();
    [[nodiscard]] bool takeAllOfGoneHosts(std::vector<std::uint8_t>& bytes);
    void forgetAnswers();

    Printer& printer_;
    Line line_;
    std::string name_;
    int hosts_ = 0;  // that have the line open
    std::chrono::steady_clock::time_point start_;
    bool held_ = false;                                // nothing goes either way
    std::optional<std::chrono::milliseconds> backAt_;  // when the line is as it should be again by itself
    std::vector<std::uint8_t> incoming_;               // what the printer has not taken yet
    bool hostsHeld_ = false;
    bool hasHost_ = false;  // as the printer has been told
    int baud_ = 0;          // 0: without a pace
    std::size_t buffer_ = 0;
    std::chrono::microseconds inFreeAt_{0};   // when the line has brought what the printer has taken
    std::chrono::microseconds outFreeAt_{0};  // when it will have carried what is in outgoing_
    std::vector<std::uint8_t> outgoing_;      // a piece the line had no room for
    bool lastStoodAlone_ = false;             // nothing may be put behind the piece sent last
};

}  // namespace passbook::sim
