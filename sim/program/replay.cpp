#include "sim/program/replay.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <iostream>
#include <span>

#include "wire/trace.h"

namespace passbook::sim {

namespace {

using wire::TraceKind;
using wire::TraceLine;

/// The time of a trace of several runs, which each may begin at any: it never goes back, and nothing waits for the next
/// run.
class Clock {
 public:
    void restart() { running_ = false; }
    [[nodiscard]] std::chrono::milliseconds at(std::int64_t microseconds) {
        if (running_)
            passed_ += std::max<std::int64_t>(microseconds - last_, 0);
        running_ = true;
        last_ = microseconds;
        return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::microseconds(passed_));
    }

 private:
    bool running_ = false;
    std::int64_t last_ = 0, passed_ = 0;
};

void warn(std::size_t writes, const char* what) {
    if (writes > 0)
        std::cerr << "passbook-sim: --replay: " << writes << " writes " << what << '\n';
}

}  // namespace

std::optional<Family> familyOfTrace(const std::string& path, std::string& error) {
    wire::TraceReader reader(path);
    TraceLine line;
    if (reader.next(line))
        return line.family;
    error = reader.problem();
    return std::nullopt;
}

bool replay(const std::string& path, Printer& printer, std::string& error) {
    wire::TraceReader reader(path);
    TraceLine line;
    Clock clock;
    bool ours = true;
    std::size_t foreign = 0, unknown = 0;
    while (reader.next(line)) {
        if (line.kind == TraceKind::start) {
            ours = line.family == printer.scenario().family;
            clock.restart();
            continue;
        }
        printer.advance(clock.at(line.microseconds));
        if (line.kind != TraceKind::write)
            continue;
        if (!ours) {
            ++foreign;
            continue;
        }
        unknown += line.result < 0 ? 1 : 0;
        printer.receive(std::span(line.bytes).first(line.taken()));
        while (printer.answerPending())
            (void)printer.takeAnswer();
    }
    warn(foreign, "are for printers of the other family, and are left out");
    warn(unknown, "may have been taken in part only, and are played whole");
    error = reader.problem();
    return error.empty();
}

}  // namespace passbook::sim
