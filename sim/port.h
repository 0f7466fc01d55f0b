#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/printer.h"

namespace passbook::sim {

// A file descriptor that is closed with its owner.
class Descriptor {
 public:
    explicit Descriptor(int value = -1) : value_(value) {}
    ~Descriptor();
    Descriptor(Descriptor&& other) noexcept : value_(other.value_) { other.value_ = -1; }
    Descriptor& operator=(Descriptor&& other) noexcept;

    [[nodiscard]] int get() const { return value_; }
    [[nodiscard]] bool valid() const { return value_ >= 0; }

 private:
    int value_;
};

// Connects a printer to a pseudo-terminal, which a host opens like a serial port, as often as it likes.
class PtyPort {
 public:
    // Null if the system has no pseudo-terminal to give; `error` then says why. The printer must outlive the
    // port.
    [[nodiscard]] static std::unique_ptr<PtyPort> open(Printer& printer, std::string& error);

    // What a host opens: the device's name relative to /dev, "pts/7".
    [[nodiscard]] const std::string& name() const { return name_; }

    // One round: waits until the host has sent something, something is due at the slot, `wakeDescriptor` is
    // readable or the time is up, and does what there is to do. Never waits longer than `timeoutMs` (and
    // often less), however slow the host reads. False if the pseudo-terminal has failed.
    //
    // Call it again and again, from one thread, and touch the printer from that thread only.
    [[nodiscard]] bool serve(int timeoutMs, int wakeDescriptor = -1);

 private:
    PtyPort(Printer& printer, Descriptor line, Descriptor hostSide, Descriptor hostReads, std::string name);

    [[nodiscard]] std::chrono::milliseconds now() const;
    [[nodiscard]] bool hostHasReadAll() const;
    [[nodiscard]] bool awaitHost(int patienceMs);
    [[nodiscard]] bool handOver(int patienceMs);
    [[nodiscard]] bool takeIn();

    Printer& printer_;
    Descriptor line_;       // the printer's side
    Descriptor hostSide_;   // ours, so that the line stays up while no host has it open
    Descriptor hostReads_;  // tells that the host may have read
    std::string name_;
    std::chrono::steady_clock::time_point start_;
    std::vector<std::uint8_t> outgoing_;  // a piece the line had no room for
    bool lastStoodAlone_ = false;         // nothing may be put behind the piece sent last
};

}  // namespace passbook::sim
