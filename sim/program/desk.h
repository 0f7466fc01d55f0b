#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/history.h"
#include "sim/printer.h"
#include "sim/program/event_log.h"
#include "sim/program/options.h"
#include "sim/program/page_file.h"
#include "sim/program/page_folder.h"

namespace passbook::sim {

/// The printer with what is kept of its doings.
class Desk {
 public:
    Desk(const Options& options, EventLog& log);
    Desk(const Desk&) = delete;
    Desk& operator=(const Desk&) = delete;

    [[nodiscard]] Printer& printer() { return printer_; }
    [[nodiscard]] const Printer& printer() const { return printer_; }
    [[nodiscard]] const EventLog& log() const { return log_; }
    [[nodiscard]] const History& history() const { return history_; }
    [[nodiscard]] bool hasHost() const { return hasHost_; }
    /// The texts on the document in place, if somebody may ask for them.
    [[nodiscard]] const std::vector<nlohmann::ordered_json>& texts() const { return texts_; }

    /// False if a file can't be written; problem() then says why.
    [[nodiscard]] bool canKeepPages(const Options& options);

    /// What is to be done now and then. True if a page still waits to be written.
    [[nodiscard]] bool lookAfter();

    /// Writes the picture of the document in place.
    void keepPage();

    /// The end: the document in place becomes the last page.
    void end();
    /// What the scenario brings later happens now, for nobody waits for it any more.
    void endScenario();
    /// Tells what was expected and is not so. True if there is nothing.
    [[nodiscard]] bool meetsExpectations() const;

    [[nodiscard]] std::string problem() const;

 private:
    void note(const Event& event);
    void keep(Page page);

    EventLog& log_;
    std::vector<Expectation> expectations_;
    bool controlled_;
    History history_;
    PageFile pageFile_;
    PageFolder pageFolder_;
    std::chrono::steady_clock::time_point pendingSince_;
    std::uint64_t events_ = 0;  // that had happened at the last look
    bool hasHost_ = false;
    std::vector<nlohmann::ordered_json> texts_;
    Printer printer_;
};

}  // namespace passbook::sim
