#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <nlohmann/json.hpp>
#include <string>

#include "sim/event.h"
#include "sim/program/descriptor.h"

namespace passbook::sim {

/// One JSON object a line, each in the file as soon as it has happened.
class EventLog {
 public:
    /// False if the file can't be written; `error` then says why.
    [[nodiscard]] bool open(const std::string& path, std::string& error);
    void toStandardOutput();

    /// Has lines made even if no file takes them, and the last ones kept for kept().
    void wantLines() { wanted_ = true; }
    void keepEvents() { wanted_ = keeps_ = true; }

    void add(const Event& event);
    /// Of the last event, without the line feed; empty if nobody wants it.
    [[nodiscard]] const std::string& line() const { return line_; }

    /// The last events, the oldest first, each with its number "n" in front; and the number of the oldest.
    static constexpr std::size_t mostKept = 20'000;
    [[nodiscard]] const std::deque<nlohmann::ordered_json>& kept() const { return kept_; }
    [[nodiscard]] std::uint64_t firstKept() const { return count_ - kept_.size(); }
    [[nodiscard]] std::chrono::steady_clock::time_point lastAt() const { return lastAt_; }

    /// How many events there have been, also without a file.
    [[nodiscard]] std::uint64_t count() const { return count_; }
    /// Empty as long as everything could be written.
    [[nodiscard]] const std::string& problem() const { return problem_; }

 private:
    std::string path_;
    Descriptor file_;
    std::string problem_;
    std::uint64_t count_ = 0;
    bool wanted_ = false;
    bool keeps_ = false;
    std::string line_;
    std::deque<nlohmann::ordered_json> kept_;
    std::chrono::steady_clock::time_point lastAt_ = std::chrono::steady_clock::now();
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace passbook::sim
