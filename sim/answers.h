#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <vector>

#include "sim/scan.h"

namespace passbook::sim {

/// What a printer has to say and the host has not read yet, oldest first: answers, and scans, which are made while they
/// are taken.
class Answers {
 public:
    [[nodiscard]] bool empty() const { return waiting_.empty(); }
    /// The scan that comes next, null if an answer does.
    [[nodiscard]] ScanDelivery* scan() const { return empty() ? nullptr : waiting_.front().scan.get(); }

    /// False if the host leaves too much unread.
    [[nodiscard]] bool add(std::vector<std::uint8_t> bytes);
    void add(std::unique_ptr<ScanDelivery> scan) { waiting_.push_back({{}, std::move(scan)}); }

    /// The answers before the next scan, or at most `split` bytes of the next one; 0: whole ones.
    [[nodiscard]] std::vector<std::uint8_t> take(std::size_t split);
    /// Whether there was a scan.
    bool dropScans();
    /// How many bytes of answers there were.
    std::size_t clear();

 private:
    struct Outgoing {
        std::vector<std::uint8_t> bytes;
        std::unique_ptr<ScanDelivery> scan;
    };
    std::deque<Outgoing> waiting_;
    std::size_t bytes_ = 0;  // of all of them, without a scan
};

}  // namespace passbook::sim
