#include "sim/program/running.h"

#include <utility>

namespace passbook::sim {

namespace {

/// How late the end of the object is noticed at most.
constexpr int roundMs = 20;

}  // namespace

RunningPrinter::RunningPrinter(Scenario scenario)
    : printer_(
          std::move(scenario), [this](const Event& event) { note(event); },
          [this](Page page) { keep(std::move(page)); }),
      port_(PtyPort::open(printer_, error_)) {
    if (port_) {
        name_ = port_->name();
        thread_ = std::thread([this] { serve(); });
    }
}

RunningPrinter::~RunningPrinter() {
    stop();
}

void RunningPrinter::stop() {
    stop_ = true;
    if (thread_.joinable())
        thread_.join();
}

void RunningPrinter::serve() {
    while (!stop_)
        if (!port_->serve(roundMs))
            return;
    (void)port_->takeIn();  // what the host has sent before the end
}

void RunningPrinter::note(const Event& event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(event);
    if (isMistake(event))
        mistakes_.push_back(event);
}

void RunningPrinter::keep(Page page) {
    const std::lock_guard lock(mutex_);
    pages_.push_back(std::move(page));
    pageEjected_.notify_all();
}

std::vector<Event> RunningPrinter::takeEvents() {
    const std::lock_guard lock(mutex_);
    return std::exchange(events_, {});
}

std::vector<Event> RunningPrinter::takeMistakes() {
    const std::lock_guard lock(mutex_);
    return std::exchange(mistakes_, {});
}

std::optional<Page> RunningPrinter::takePage(std::chrono::milliseconds patience) {
    std::unique_lock lock(mutex_);
    if (!pageEjected_.wait_for(lock, patience, [this] { return !pages_.empty(); }))
        return std::nullopt;
    Page page = std::move(pages_.front());
    pages_.pop_front();
    return page;
}

}  // namespace passbook::sim
