// A line to the virtual printer of which transfers go wrong.
#pragma once

#include <cerrno>
#include <map>
#include <random>
#include <string>
#include <utility>

#include "sim/event_json.h"
#include "sim/printer.h"
#include "tests/day.h"
#include "tests/support.h"

namespace passbook::tests {

/// The virtual printer at the other end of a device file. Some transfers go wrong, by their number; 1 is the first.
class FailingLine : public DeviceFile {
 public:
    /// The host is told of the first three and of the last. Junk and death have no end.
    enum Fault { none, error, interrupted, cutShort, halved, doubled, silence, garbage, lost, added, late, junk, dead };
    static constexpr const char* names[] = {"none",    "error",        "interrupted",  "short",       "half lost",
                                            "doubled", "silence",      "garbage",      "a byte lost", "a byte inserted",
                                            "late",    "endless junk", "dead for good"};
    using Plan = std::map<int, Fault>;

    FailingLine(const std::string& path, const sim::Scenario& scenario, Plan plan)
        : DeviceFile(path),
          printer_(scenario, [this](const sim::Event& event) { events_.push_back(sim::toJson(event)); }),
          plan_(std::move(plan)) {}
    FailingLine(const std::string& path, const sim::Scenario& scenario, Fault fault = none, int at = 0)
        : FailingLine(path, scenario, Plan{{at, fault}}) {}

    int transfers = 0;
    int writes = 0, failed = 0;  // that the driver made, and those that it was told have failed
    int met = 0;                 // faults
    bool lied = false;           // bytes came otherwise than they were sent, or answers than they were given
    std::string sent;            // what the host was told that the printer has
    std::chrono::milliseconds lateness{1500};
    bool stalls = false;  // instead of being interrupted, which libusb hides

    Events takeEvents() {
        printer_.printWaitingText();
        return std::exchange(events_, {});
    }

    ssize_t write(const std::string& data) override {
        std::string arriving = data;
        const Fault fault = meet(arriving);
        const bool retried = fault == interrupted && !stalls, cut = fault == cutShort && data.size() > 1;
        writes += retried ? 0 : 1;
        failed += fault == error || (fault == interrupted && stalls) || fault == dead || cut ? 1 : 0;
        if (fault == error || fault == dead || fault == interrupted)
            return failing(fault);
        if (fault == late)
            virtualClock.microseconds += 5'000'000;
        lied = lied || (arriving != data && fault != cutShort);
        printer_.receive({octets(arriving.data()), arriving.size()});
        // What was lost on the line was taken by the system.
        sent.append(data, 0, fault == cutShort ? arriving.size() : data.size());
        return static_cast<ssize_t>(fault == cutShort ? arriving.size() : data.size());
    }
    int poll(int timeoutMs) override {
        EXPECT_GE(timeoutMs, 0) << "a wait without an end";
        bring();
        const std::int64_t now = virtualClock.microseconds, end = now + std::int64_t{timeoutMs} * 1000;
        if (pending_ == none && (coming_.empty() || comesAt_ > end)) {
            virtualClock.microseconds = now + 300'000;
            if (hushed_ && !stalls && virtualClock.microseconds < end)
                return failing(interrupted);  // by a timer of the host's
            virtualClock.microseconds = end;
            return 0;
        }
        virtualClock.microseconds = std::max(now, comesAt_);
        return pending_ == interrupted ? failing(std::exchange(pending_, none)) : 1;
    }
    ssize_t read(char* buffer, std::size_t size) override {
        bring();
        virtualClock.microseconds = std::max(virtualClock.microseconds + (junk_ ? 20'000 : 0), comesAt_);
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
    static int failing(Fault fault) {
        errno = fault == interrupted ? EINTR : fault == dead ? ENODEV : EIO;
        return -1;
    }
    /// One transfer: what becomes of its bytes.
    Fault meet(std::string& data) {
        const auto planned = plan_.find(++transfers);
        Fault fault = planned == plan_.end() ? none : planned->second;
        met += fault != none || dead_ || junk_ ? 1 : 0;
        dead_ = dead_ || fault == dead;
        hushed_ = hushed_ || fault == silence;
        junk_ = junk_ || fault == junk;
        if (dead_)
            fault = dead;
        const std::size_t middle = data.size() / 2;
        if (fault == halved || fault == cutShort)
            data.resize((data.size() + (fault == cutShort ? 1 : 0)) / 2);
        if (fault == doubled)
            data += std::string(data);
        if (fault == silence)
            data.clear();
        if (fault == lost)
            data.erase(middle, 1);
        if (fault == added)
            data.insert(middle, 1, 'x');
        for (char& byte : data)
            byte = static_cast<char>(byte ^ (fault == garbage ? 0x55 : 0));
        return fault;
    }
    void bring() {
        if (!coming_.empty() || pending_ != none)
            return;
        printer_.advance(std::chrono::milliseconds((virtualClock.microseconds - start_) / 1000));
        const auto taken = printer_.takeAnswer();
        std::string piece(taken.begin(), taken.end());
        const std::string whole = piece;
        const Fault fault = meet(piece);
        pending_ = fault == error || fault == interrupted || fault == dead ? fault : none;
        coming_ = fault == cutShort || fault == interrupted ? whole : pending_ != none ? "" : piece;
        lied = lied || (coming_ != whole && pending_ == none) || junk_;
        short_ = fault == cutShort ? piece.size() : 0;
        comesAt_ = fault == late ? virtualClock.microseconds + lateness / std::chrono::microseconds(1) : 0;
        for (int i = 0; junk_ && i < 16; ++i)
            coming_ += static_cast<char>(noise_());
    }

    Events events_;
    sim::Printer printer_;
    Plan plan_;
    const std::int64_t start_ = virtualClock.microseconds;
    std::string coming_;
    std::int64_t comesAt_ = 0;
    Fault pending_ = none;   // of the next read
    std::size_t short_ = 0;  // how much the next read brings, if not all
    bool dead_ = false, junk_ = false, hushed_ = false;
    std::minstd_rand noise_;
};

/// Something that goes wrong: with a transfer, or with a call to the system.
struct Trouble {
    const char* name;
    FailingLine::Fault fault = FailingLine::none;
    FailingCalls calls = {};
    int times = 1;  // in a row
};

/// One after another, as the sweeps try them.
inline std::vector<Trouble> troubles() {
    std::vector<Trouble> all;
    for (int fault = FailingLine::error; fault <= FailingLine::dead; ++fault)
        all.push_back({FailingLine::names[fault], static_cast<FailingLine::Fault>(fault)});
    all.push_back({"error twice", FailingLine::error, {}, 2});
    for (const auto& [name, call, forGood, at] : {
             std::tuple{"no memory once", "allocation", false, 0U},
             {"no memory from there on", "allocation", true, 0U},
             {"open", "open", false, 0U},
             {"open from there on", "open", true, 0U},
             {"descriptors used up", "descriptors", true, 0U},
             {"write of a file", "write", false, 0U},
             {"write behind headers", "write", false, 54U},
             {"write of rows", "write", false, 700U},
             {"disk full", "write", true, 100U},
             {"rename", "rename", false, 0U},
             {"rename from there on", "rename", true, 0U},
             {"ended by the host", "progress", false, 0U},
         })
        all.push_back({name, FailingLine::none, {.name = call, .forGood = forGood, .at = at}});
    return all;
}

}  // namespace passbook::tests
