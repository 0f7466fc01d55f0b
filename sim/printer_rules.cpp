// The printer under its rules: what a scenario or a test lets happen to it, and how long that lasts.

#include <algorithm>
#include <utility>

#include "sim/printer.h"

namespace passbook::sim {

namespace {

using std::chrono::milliseconds;

constexpr std::size_t mostRules = 1000;

/// Rules that fire each other at one moment are left to themselves after so many.
constexpr int mostAtOnce = 1000;

}  // namespace

void Printer::advance(milliseconds now) {
    const milliseconds target = std::max(now, now_);
    // Each thing happens at its own moment, so that a long step does the same as many short ones.
    for (milliseconds next = nextChange(); next < target; next = nextChange()) {
        now_ = std::max(now_, next);
        endWhatIsOver();
    }
    now_ = target;
    endWhatIsOver();
}

void Printer::endWhatIsOver() {
    answers_.advance(now_);
    paper_.advance(now_);
    if (jam_ && jam_->due <= now_)
        endJam();
    if (status_ && status_->due <= now_)
        status_.reset();
    rulesOfScenario_.advance(now_);
    runRules();
}

milliseconds Printer::nextChange() const {
    return std::min({paper_.nextChange(), answers_.nextChange(), nextOfRules()});
}

milliseconds Printer::nextOfRules() const {
    return std::min({rulesOfScenario_.nextChange(), jam_ ? jam_->due : never, status_ ? status_->due : never});
}

void Printer::runRules() {
    if (std::exchange(inRules_, true))
        return;
    const Rule* rule = rulesOfScenario_.next();
    for (int count = 0; rule != nullptr; rule = rulesOfScenario_.next()) {
        if (++count > mostAtOnce)
            continue;
        if (!rule->name.empty())
            emit(event::RuleFired{rule->name});
        for (const Action& action : rule->then)
            (void)act(action);  // a person who finds nothing to take goes away
    }
    inRules_ = false;
}

bool Printer::addRule(Rule rule) {
    if (rulesOfScenario_.size() >= mostRules)
        return false;
    rulesOfScenario_.add(std::move(rule));
    return true;
}

bool Printer::act(const Action& action) {
    struct Do {
        Printer& printer;

        bool operator()(const action::Insert&) const { return printer.paper_.insert(); }
        bool operator()(const action::Take&) const { return printer.paper_.take() || printer.paper_.pull(); }
        bool operator()(const action::Jam& jam) const {
            if (!std::exchange(printer.jam_, printer.lasting(jam.status, jam.until)))
                printer.emit(event::Jam{true});
            return true;
        }
        bool operator()(const action::ClearJam&) const {
            printer.endJam();
            return true;
        }
        bool operator()(const action::Status& status) const {
            const Until& until = status.until;
            const bool lasts = !until.time && !until.answers && !until.clearError;
            printer.status_.reset();
            if (lasts)
                printer.scenario_.printerStatus = status.value;
            else
                printer.status_ = printer.lasting(status.value, until);
            return true;
        }
        bool operator()(const AnswerTrouble& trouble) const {
            std::vector<AnswerTrouble>& all = printer.scenario_.answers;
            std::erase_if(all, [&trouble](const AnswerTrouble& each) {
                return trouble.how == AnswerTrouble::How::right ? trouble.to.empty() || trouble.to == each.to
                                                                : trouble.how == each.how && trouble.to == each.to;
            });
            if (trouble.how != AnswerTrouble::How::right)
                all.push_back(trouble);
            return true;
        }
        bool operator()(const ScanTrouble& trouble) const {
            printer.scenario_.scan.trouble = trouble;
            return true;
        }
        bool operator()(const action::Line& line) const { return printer.tellLine(line); }
        bool operator()(const action::Usb& usb) const { return printer.tellLine(usb); }
    };
    const bool done = std::visit(Do{*this}, action);
    runRules();
    return done;
}

bool Printer::tellLine(const LineAction& action) {
    lineTouched_ = true;
    return lineSink_ && lineSink_(action);
}

Printer::Lasting Printer::lasting(int status, const Until& until) const {
    return {status, until, until.time ? now_ + *until.time : never};
}

void Printer::clearError() {
    if (jam_ && jam_->until.clearError)
        endJam();
    if (status_ && status_->until.clearError)
        status_.reset();
}

void Printer::endJam() {
    if (std::exchange(jam_, std::nullopt))
        emit(event::Jam{false});
}

int Printer::printerStatus() const {
    return status_ ? status_->status : jam_ ? jam_->status : scenario_.printerStatus;
}

Printer::Delivery Printer::deliveryOf(std::string_view name) {
    using How = AnswerTrouble::How;
    Delivery delivery;
    for (AnswerTrouble& each : scenario_.answers) {
        if (!each.to.empty() && each.to != name)
            continue;
        delivery.missing |= each.how == How::missing;
        delivery.doubled |= each.how == How::doubled;
        delivery.garbled |= each.how == How::garbled;
        if (each.how == How::pieces)
            delivery.piece = each.size;
        if (each.how == How::late)
            delivery.delay = each.delay;
        if (each.count)
            --*each.count;
    }
    std::erase_if(scenario_.answers, [](const AnswerTrouble& each) { return each.count && *each.count <= 0; });
    return delivery;
}

void Printer::transferBegins() {
    rulesOfScenario_.transfer();
    runRules();
}

void Printer::hostChanged(bool opened) {
    if (scenario_.hostEvents)
        emit(event::Host{opened});
    rulesOfScenario_.host(opened);
    runRules();
}

}  // namespace passbook::sim
