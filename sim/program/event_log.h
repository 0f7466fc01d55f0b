#pragma once

#include <chrono>
#include <cstdint>
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

    void add(const Event& event);

    /// How many events there have been, also without a file.
    [[nodiscard]] std::uint64_t count() const { return count_; }
    /// Empty as long as everything could be written.
    [[nodiscard]] const std::string& problem() const { return problem_; }

 private:
    std::string path_;
    Descriptor file_;
    std::string problem_;
    std::uint64_t count_ = 0;
    std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

}  // namespace passbook::sim
