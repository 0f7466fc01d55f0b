#include "sim/program/desk.h"

#include <algorithm>
#include <iostream>
#include <utility>

namespace passbook::sim {

namespace {

using std::chrono::steady_clock;

/// The picture of an ejected page is written when nothing has happened for a moment, and after a while also if the host
/// never pauses.
constexpr std::chrono::seconds longestBusy(1);

/// Rules that fire each other for ever are left to themselves.
constexpr int mostAtEnd = 10'000;
constexpr std::chrono::hours longestEnd(1);

constexpr std::size_t mostTexts = 10'000;

}  // namespace

Desk::Desk(const Options& options, EventLog& log)
    : log_(log),
      expectations_(options.expectations),
      controlled_(!options.control.empty()),
      pageFile_(options.pageFile),
      printer_(
          options.scenario, [this](const Event& event) { note(event); }, [this](Page page) { keep(std::move(page)); }) {
}

bool Desk::canKeepPages(const Options& options) {
    if (!options.pageFolder.empty()) {
        log_.wantLines();
        if (!pageFolder_.open(options.pageFolder))
            return false;
    }
    return pageFile_.canBeWritten();
}

bool Desk::lookAfter() {
    const bool quiet = events_ == log_.count();
    events_ = log_.count();
    if (pageFile_.pending() && (quiet || steady_clock::now() - pendingSince_ > longestBusy))
        pageFile_.writeEjected();
    return pageFile_.pending();
}

void Desk::keepPage() {
    printer_.printWaitingText();
    pageFile_.writeEjected();
    if (const Page* page = printer_.page())
        pageFile_.write(*page);
}

void Desk::end() {
    printer_.finish();
    keepPage();
    if (const Page* page = printer_.page())
        pageFolder_.pageEnded(*page);
}

void Desk::endScenario() {
    const std::chrono::milliseconds first = printer_.nextOfRules();
    const std::chrono::milliseconds limit = first == never ? never : first + longestEnd;
    for (int count = 0; count < mostAtEnd && printer_.nextOfRules() < limit; ++count)
        printer_.advance(printer_.nextOfRules());
}

bool Desk::meetsExpectations() const {
    bool met = true;
    for (const Expectation& each : expectations_) {
        const std::string what = history_.unmet(each, printer_.page(), printer_.pages());
        if (!what.empty())
            std::cerr << "passbook-sim: " << what << '\n';
        met = met && what.empty();
    }
    return met;
}

std::string Desk::problem() const {
    for (const std::string* each : {&pageFile_.problem(), &pageFolder_.problem()})
        if (!each->empty())
            return *each;
    return log_.problem();
}

void Desk::note(const Event& event) {
    if (pageFile_.pending() && isAny<event::Answer>(event)) {
        // A host that learns that its page is out finds its picture.
        pageFile_.writeEjected();
    }
    if (const auto* const host = std::get_if<event::Host>(&event))
        hasHost_ = host->opened;
    log_.add(event);
    if (pageFolder_.used())
        pageFolder_.note(log_.line());
    if (controlled_ || !expectations_.empty())
        history_.note(event);
    if (controlled_ && isAny<event::Text>(event) && texts_.size() < mostTexts)
        texts_.push_back(log_.kept().back());
}

void Desk::keep(Page page) {
    if (!pageFile_.pending())
        pendingSince_ = steady_clock::now();
    const auto kept = std::make_shared<const Page>(std::move(page));
    if (controlled_ || !expectations_.empty())
        history_.pageEnded(kept);
    pageFolder_.pageEnded(*kept);
    pageFile_.take(kept);
    texts_.clear();
}

}  // namespace passbook::sim
