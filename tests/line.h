// The virtual printer at the other end of a line.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "sim/port.h"
#include "sim/printer.h"

namespace passbook::tests {

/// A virtual printer on a pseudo-terminal, in a thread of its own. Each ejected page is compared with what
/// was expected.
class PrinterOnALine {
 public:
    explicit PrinterOnALine(sim::Scenario scenario = {})
        : printer_(
              std::move(scenario), [this](const nlohmann::json& event) { note(event); }, [this](const sim::Page& page) { compare(page); }) {
        std::string error;
        port_ = sim::PtyPort::open(printer_, error);
        EXPECT_NE(port_, nullptr) << error;
        thread_ = std::thread([this] {
            while (!stop_ && port_->serve(20)) {
            }
        });
    }
    ~PrinterOnALine() {
        stop_ = true;
        thread_.join();
    }
    [[nodiscard]] const std::string& name() const { return port_->name(); }

    void expect(std::vector<std::string> rows, int xDots, int yDots) {
        const std::lock_guard lock(mutex_);
        rows_ = std::move(rows);
        xDots_ = xDots;
        yDots_ = yDots;
        differences_ = -1;
    }
    /// The OKI functions ask nothing at the end that would tell that the page is out.
    void waitForPage() {
        for (int i = 0; i < 2000 && differences() < 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    int differences() {
        const std::lock_guard lock(mutex_);
        return differences_;
    }
    std::set<std::string> surprises() {
        const std::lock_guard lock(mutex_);
        return surprises_;
    }

 private:
    void note(const nlohmann::json& event) {
        const std::lock_guard lock(mutex_);
        const std::string kind = event["event"];
        if (kind == "unknown" || kind == "malformed" || kind == "no-paper" || kind == "off-page" || kind == "bad-value")
            surprises_.insert(event.dump());
    }
    void compare(const sim::Page& page) {
        const std::lock_guard lock(mutex_);
        differences_ = 0;
        constexpr int around = 30;  // dots beside the picture that have to stay blank
        const int height = static_cast<int>(rows_.size());
        const int width = height > 0 ? 500 : 0;
        for (int y = -around; y < height + around; ++y) {
            for (int x = -around; x < width + around; ++x) {
                const bool inside = y >= 0 && y < height && x >= 0 && x < static_cast<int>(rows_[static_cast<std::size_t>(y)].size());
                const bool want = inside && rows_[static_cast<std::size_t>(y)][static_cast<std::size_t>(x)] == '#';
                if (page.dot(xDots_ + x, yDots_ + y) != want) ++differences_;
            }
        }
    }

    std::mutex mutex_;
    std::vector<std::string> rows_;
    int xDots_ = 0, yDots_ = 0;
    int differences_ = -1;
    std::set<std::string> surprises_;
    sim::Printer printer_;
    std::unique_ptr<sim::PtyPort> port_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

}  // namespace passbook::tests
