#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "sim/printer.h"
#include "sim/program/pty_port.h"

namespace passbook::sim {

/// A printer on a pseudo-terminal, served by a thread of its own for as long as this object lives, which keeps what
/// happens to it: what a test of a host program wants.
class RunningPrinter {
 public:
    explicit RunningPrinter(Scenario scenario = {});
    RunningPrinter(const RunningPrinter&) = delete;
    RunningPrinter& operator=(const RunningPrinter&) = delete;
    ~RunningPrinter();

    /// What a host opens, relative to /dev; empty if the system had no pseudo-terminal to give, and error() says why.
    [[nodiscard]] const std::string& name() const { return name_; }
    [[nodiscard]] const std::string& error() const { return error_; }

    /// Ends the line. What the host has sent before is printed; nothing is served any more.
    void stop();

    /// What has happened since the last call, oldest first. Somebody has to take it, or it grows.
    [[nodiscard]] std::vector<Event> takeEvents();
    /// Of what has happened since the last call, what tells of a mistake of the host's: bytes that mean nothing, ink
    /// beside the page, printing without paper. It is in takeEvents() as well.
    [[nodiscard]] std::vector<Event> takeMistakes();
    /// The oldest ejected page that has not been taken yet. None if none is ejected for so long.
    [[nodiscard]] std::optional<Page> takePage(std::chrono::milliseconds patience);

 private:
    void serve();
    void note(const Event& event);
    void keep(Page page);

    std::mutex mutex_;  // of what the thread leaves for others
    std::condition_variable pageEjected_;
    std::vector<Event> events_;
    std::vector<Event> mistakes_;
    std::deque<Page> pages_;

    Printer printer_;
    std::string error_;
    std::unique_ptr<PtyPort> port_;
    std::string name_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

}  // namespace passbook::sim
