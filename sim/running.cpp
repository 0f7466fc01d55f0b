#include "sim/running.h"

#include <utility>

namespace passbook::sim {

namespace {

// How late the end of the object is noticed at most.
constexpr int kRoundMs = 20;

}  // namespace

RunningPrinter::RunningPrinter(Scenario scenario, EventSink events, PageSink ejected, std::string& error)
    : printer_(std::move(scenario), std::move(events), std::move(ejected)),
      port_(PtyPort::open(printer_, error)) {
    if (port_) {
        name_ = port_->name();
        thread_ = std::thread([this] { serve(); });
    }
}

RunningPrinter::~RunningPrinter() {
    stop_ = true;
    if (thread_.joinable()) {
        thread_.join();
    }
}

void RunningPrinter::serve() {
    // One more round behind the end: what the host has sent before it is printed too.
    bool last = false;
    do {
        last = stop_;
    } while (port_->serve(kRoundMs) && !last);
}

}  // namespace passbook::sim
