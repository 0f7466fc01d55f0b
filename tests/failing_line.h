// A line to the virtual printer of which one transfer goes wrong.
#pragma once

#include <cerrno>
#include <string>
#include <utility>

#include "sim/event_json.h"
#include "sim/printer.h"
#include "tests/day.h"
#include "tests/support.h"

namespace passbook::tests {

/// The virtual printer at the other end of a device file, of which the n-th transfer goes wrong.
class FailingLine : public DeviceFile {
 public:
    enum Fault { none, error, interrupted, cutShort, truncated, doubled, silence, garbage, faults };

    FailingLine(const std::string& path, const sim::Scenario& scenario, Fault fault = none, int at = 0)
        : DeviceFile(path),
          printer_(scenario, [this](const sim::Event& event) { events_.push_back(sim::toJson(event)); }),
          fault_(fault),
          at_(at) {}
    int transfers = 0;

    Events takeEvents() {
        printer_.printWaitingText();
        return std::exchange(events_, {});
    }

    ssize_t write(const std::string& data) override {
        std::string sent = data;
        const Fault met = meet(sent);
        if (met == error || met == interrupted)
            return failing(met);
        printer_.receive({octets(sent.data()), sent.size()});
        // What was lost on the line was taken by the system.
        return static_cast<ssize_t>(met == cutShort ? sent.size() : data.size());
    }
    int poll(int timeoutMs) override {
        bring();
        if (coming_.empty() && pending_ == none)
            virtualClock.microseconds += std::int64_t{timeoutMs} * 1000;
        return pending_ == interrupted               ? failing(std::exchange(pending_, none))
               : coming_.empty() && pending_ == none ? 0
                                                     : 1;
    }
    ssize_t read(char* buffer, std::size_t size) override {
        bring();
        if (pending_ != none)
            return failing(std::exchange(pending_, none));
        if (coming_.empty())
            virtualClock.microseconds += 1'000'000;
        const std::size_t count = coming_.copy(buffer, std::min(size, short_ > 0 ? short_ : size));
        coming_.erase(0, count);
        short_ = 0;
        return static_cast<ssize_t>(count);
    }

 private:
    static int failing(Fault met) {
        errno = met == interrupted ? EINTR : EIO;
        return -1;
    }
    /// One transfer: what becomes of its bytes.
    Fault meet(std::string& data) {
        const Fault met = ++transfers == at_ ? fault_ : none;
        if (met == truncated || met == cutShort)
            data.resize((data.size() + (met == cutShort ? 1 : 0)) / 2);
        if (met == doubled)
            data += std::string(data);
        if (met == silence)
            data.clear();
        for (char& byte : data)
            byte = static_cast<char>(byte ^ (met == garbage ? 0x55 : 0));
        return met;
    }
    void bring() {
        if (!coming_.empty() || pending_ != none)
            return;
        printer_.advance(std::chrono::milliseconds((virtualClock.microseconds - VirtualClock{}.microseconds) / 1000));
        const auto taken = printer_.takeAnswer();
        std::string piece(taken.begin(), taken.end());
        const std::string whole = piece;
        const Fault met = meet(piece);
        pending_ = met == error || met == interrupted ? met : none;
        coming_ = met == cutShort || met == interrupted ? whole : met == error ? "" : piece;
        short_ = met == cutShort ? piece.size() : 0;
    }

    Events events_;
    sim::Printer printer_;
    Fault fault_;
    int at_;
    std::string coming_;
    Fault pending_ = none;   // of the next read
    std::size_t short_ = 0;  // how much the next read brings, if not all
};

}  // namespace passbook::tests
