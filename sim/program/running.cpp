#include "sim/program/running.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

namespace passbook::sim {

namespace {

/// How late the end of the object is noticed at most.
constexpr int roundMs = 20;

constexpr std::array<std::string_view, 5> mistakes = {"unknown", "malformed", "no-paper", "off-page", "bad-value"};

}  // namespace

RunningPrinter::RunningPrinter(Scenario scenario)
    : printer_(
          std::move(scenario), [this](const nlohmann::json& event) { note(event); },
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

void RunningPrinter::note(const nlohmann::json& event) {
    const std::lock_guard lock(mutex_);
    events_.push_back(event);
    const std::string_view kind = event.at("event").get_ref<const std::string&>();
    if (std::find(mistakes.begin(), mistakes.end(), kind) != mistakes.end())
        mistakes_.push_back(event);
}

void RunningPrinter::keep(Page page) {
    const std::lock_guard lock(mutex_);
    pages_.push_back(std::move(page));
    pageEjected_.notify_all();
}

std::vector<nlohmann::json> RunningPrinter::takeEvents() {
    const std::lock_guard lock(mutex_);
    return std::exchange(events_, {});
}

std::vector<nlohmann::json> RunningPrinter::takeMistakes() {
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
