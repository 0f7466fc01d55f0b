#include "sim/rules.h"

#include <glib.h>

#include <algorithm>

#include "sim/event_json.h"
#include "sim/text.h"

namespace passbook::sim {

namespace {

using Kind = Trigger::Kind;

/// Since the firing of another rule, at least: two rules that each wait for the other must let time go on.
constexpr std::chrono::milliseconds shortestDelay(1);

/// What two rules that fire each other leave waiting, at most.
constexpr std::size_t mostDue = 256;

}  // namespace

bool hasAll(const nlohmann::json& event, const nlohmann::json& wanted) {
    return std::all_of(
        wanted.items().begin(), wanted.items().end(),
        [&](const auto& each) {
            const auto found = event.find(each.key());
            return found != event.end() && *found == each.value();
        });
}

Rules::Rules(std::vector<Rule> rules) {
    for (Rule& rule : rules)
        add(std::move(rule));
}

void Rules::add(Rule rule) {
    kinds_ |= bit(rule.when.kind);
    Watched& watched = rules_.emplace_back(Watched{std::move(rule)});
    const Trigger& when = watched.rule.when;
    if (when.kind == Kind::byte)
        watched.byte = received_ + when.nth;
    else if (when.kind == Kind::time && when.name.empty())
        watched.due = now_ + when.after;
    else if (when.kind == Kind::matching)
        watched.expression = {
            g_regex_new(when.name.c_str(), G_REGEX_OPTIMIZE, static_cast<GRegexMatchFlags>(0), nullptr),
            [](GRegex* regex) {
                if (regex != nullptr)
                    g_regex_unref(regex);
            }};
}

void Rules::command(std::string_view name) {
    happened(
        Kind::command, [name](const Trigger& trigger) { return trigger.name == name; });
}

void Rules::event(const Event& event) {
    if (const auto* const text = std::get_if<event::Text>(&event);
        text != nullptr && (kinds_ & (bit(Kind::text) | bit(Kind::matching))) != 0) {
        const std::string utf8 = toUtf8(text->bytes);
        happened(Kind::text, [&utf8](const Trigger& trigger) { return utf8.find(trigger.name) != std::string::npos; });
        for (Watched& each : rules_)
            if (each.expression && g_regex_match(static_cast<const GRegex*>(each.expression.get()), utf8.c_str(),
                                                 static_cast<GRegexMatchFlags>(0), nullptr) != FALSE)
                count(each);
    }
    if (const auto* const paper = std::get_if<event::Paper>(&event))
        happened(Kind::paper, [paper](const Trigger& trigger) { return trigger.paper == paper->what; });
    if ((kinds_ & bit(Kind::event)) != 0) {
        const nlohmann::json shown = toJson(event);
        happened(Kind::event, [&shown](const Trigger& trigger) { return hasAll(shown, trigger.event); });
    }
}

void Rules::host(bool opened) {
    happened(
        opened ? Kind::hostOpened : Kind::hostClosed, [](const Trigger&) { return true; });
}

void Rules::transfer() {
    happened(
        Kind::transfer, [](const Trigger&) { return true; });
}

void Rules::bytes(std::size_t count) {
    received_ += count;
    if ((kinds_ & bit(Kind::byte)) == 0)
        return;
    for (Watched& each : rules_)
        if (each.byte != 0 && each.byte <= received_) {
            each.byte = 0;
            fire(each);
        }
}

void Rules::advance(Clock now) {
    now_ = std::max(now_, now);
    for (Watched& each : rules_)
        if (each.due <= now_ && each.due != never) {
            each.due = never;
            count(each);
        }
}

Rules::Clock Rules::nextChange() const {
    Clock next = never;
    for (const Watched& each : rules_)
        next = std::min(next, each.due);
    return next;
}

void Rules::count(Watched& watched) {
    const Trigger& when = watched.rule.when;
    ++watched.count;
    if (watched.count == when.nth || (when.each && watched.count > when.nth))
        fire(watched);
}

void Rules::fire(Watched& watched) {
    if (due_.size() < mostDue)
        due_.push_back(&watched.rule);
    const std::string& name = watched.rule.name;
    if (name.empty())
        return;
    fired_.insert(name);
    for (Watched& each : rules_) {
        const Trigger& when = each.rule.when;
        if (when.kind == Kind::time && when.name == name && (when.each || each.count < when.nth))
            each.due = now_ + std::max(when.after, shortestDelay);
    }
}

const Rule* Rules::next() {
    if (due_.empty())
        return nullptr;
    const Rule* const rule = due_.front();
    due_.pop_front();
    return rule;
}

bool Rules::knows(std::string_view name) const {
    return std::any_of(
        rules_.begin(), rules_.end(), [name](const Watched& each) { return each.rule.name == name; });
}

}  // namespace passbook::sim
