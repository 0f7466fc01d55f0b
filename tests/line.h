// The virtual printer at the other end of a line.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "sim/running.h"
#include "tests/support.h"

namespace passbook::tests {

/// A virtual printer on a pseudo-terminal, in a thread of its own. Each ejected page is compared with what
/// was expected.
class PrinterOnALine {
 public:
    explicit PrinterOnALine(sim::Scenario scenario)
        : printer_(
              std::move(scenario), [this](const nlohmann::json& event) { note(event); }, [this](const sim::Page& page) { compare(page); },
              error_) {
        EXPECT_NE(name(), "") << error_;
    }
    [[nodiscard]] const std::string& name() const { return printer_.name(); }

    void expect(Picture dots, int xDots, int yDots) {
        const std::lock_guard lock(mutex_);
        dots_ = std::move(dots);
        xDots_ = xDots;
        yDots_ = yDots;
        differences_ = -1;
    }
    /// Between the next page and what was expected; the OKI functions ask nothing that would tell when it is out.
    int differences() {
        std::unique_lock lock(mutex_);
        (void)compared_.wait_for(lock, std::chrono::seconds(10), [this] { return differences_ >= 0; });
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
        for (int y = -around; y < dots_.height + around; ++y) {
            for (int x = -around; x < dots_.width + around; ++x) {
                const bool inside = y >= 0 && y < dots_.height && x >= 0 && x < dots_.width;
                if (page.dot(xDots_ + x, yDots_ + y) != (inside && dots_.at(x, y) == 0)) ++differences_;
            }
        }
        compared_.notify_all();
    }

    std::mutex mutex_;
    std::condition_variable compared_;
    Picture dots_{0, 0};
    int xDots_ = 0, yDots_ = 0;
    int differences_ = -1;
    std::set<std::string> surprises_;
    std::string error_;
    sim::RunningPrinter printer_;  // last, for its thread uses the others
};

}  // namespace passbook::tests
