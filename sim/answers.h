#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "sim/scan.h"

namespace passbook::sim {

/// What a printer has to say and the host has not read yet, oldest first: answers, and scans, which are made while they
/// are taken. What is late holds up what is behind it.
class Answers {
 public:
    using Clock = std::chrono::milliseconds;

    /// Whether there is nothing to be taken now.
    [[nodiscard]] bool empty() const { return waiting_.empty() || waiting_.front().due > now_; }
    /// The scan that comes next, null if an answer does.
    [[nodiscard]] ScanDelivery* scan() const { return empty() ? nullptr : waiting_.front().scan.get(); }
    /// Whether what comes next may not be joined with what comes behind it.
    [[nodiscard]] bool standsAlone() const {
        return !empty() && (waiting_.front().piece > 0 || waiting_.front().scan != nullptr);
    }

    void advance(Clock now) { now_ = now; }
    /// When there will be more to take; never if that is no matter of time.
    [[nodiscard]] Clock nextChange() const { return waiting_.empty() || !empty() ? never : waiting_.front().due; }

    /// Taken in pieces of at most `piece` bytes, 0: whole. False if the host leaves too much unread.
    [[nodiscard]] bool add(std::vector<std::uint8_t> bytes, std::size_t piece, Clock delay);
    void add(std::unique_ptr<ScanDelivery> scan, Clock delay) {
        waiting_.push_back({{}, std::move(scan), 0, now_ + delay});
    }

    /// The answers before the next that stands alone, or a piece of that one.
    [[nodiscard]] std::vector<std::uint8_t> take();
    /// Whether there was a scan.
    bool dropScans();
    /// Forgets all but what is late. How many bytes of answers there were.
    std::size_t clear();

 private:
    struct Outgoing {
        std::vector<std::uint8_t> bytes;
        std::unique_ptr<ScanDelivery> scan;
        std::size_t piece;
        Clock due;
    };
    Clock now_{0};
    std::deque<Outgoing> waiting_;
    std::size_t bytes_ = 0;  // of all of them, without a scan
};

}  // namespace passbook::sim
