// Trace files: what went over a line, one JSON object a line. passbook(1) describes them.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include "wire/decoder.h"

namespace passbook::wire {

enum class TraceKind { start, call, result, write, read, open, close };

/// The kinds' names in the file, in the order of the enumeration.
inline constexpr std::array<const char*, 7> traceKindNames{"trace", "call", "return", "write", "read", "open", "close"};

/// The first version of the format, and the only one so far.
inline constexpr int traceVersion = 1;

/// Data of this size are cut into several lines.
inline constexpr std::size_t tracePieceBytes = 32768;

/// One line of a trace.
struct TraceLine {
    TraceKind kind = TraceKind::start;
    std::size_t number = 0;  // of the line in the file, from 1
    std::int64_t microseconds = 0;
    std::string function;
    int result = 0;
    int systemError = 0;
    std::vector<std::uint8_t> bytes;
    std::string text;  // open: the port; start: when, on the wall clock
    Family family = Family::oli;
    bool masked = true;

    /// How many of the bytes the line took. Of those that nobody knows of, all.
    [[nodiscard]] std::size_t taken() const;
};

class TraceReader {
 public:
    explicit TraceReader(const std::string& path);
    /// The next line. False at the end, or when something is wrong.
    [[nodiscard]] bool next(TraceLine& line);
    /// What is wrong, with the file and the line; empty when nothing is.
    [[nodiscard]] const std::string& problem() const { return problem_; }

 private:
    bool fail(const std::string& what);
    bool parse(const std::string& text, TraceLine& line);

    std::string path_;
    std::ifstream file_;
    std::size_t number_ = 0;
    std::string problem_;
};

}  // namespace passbook::wire
