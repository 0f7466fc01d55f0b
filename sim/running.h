#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "sim/port.h"
#include "sim/printer.h"

namespace passbook::sim {

// A printer on a pseudo-terminal, served by a thread of its own for as long as this object lives: what a test of a
// host program wants. Events and pages come from that thread; the printer itself is not to be touched.
class RunningPrinter {
 public:
    // `error` says why when name() is empty: the system had no pseudo-terminal to give.
    RunningPrinter(Scenario scenario, EventSink events, PageSink ejected, std::string& error);
    RunningPrinter(const RunningPrinter&) = delete;
    RunningPrinter& operator=(const RunningPrinter&) = delete;
    ~RunningPrinter();

    // What a host opens, relative to /dev.
    [[nodiscard]] const std::string& name() const { return name_; }

 private:
    void serve();

    Printer printer_;
    std::unique_ptr<PtyPort> port_;
    std::string name_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

}  // namespace passbook::sim
